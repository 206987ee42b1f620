// Lines of config/zaro.ini for a host that shares no setting with others.
#pragma once

namespace zarotest {

// All that a server and a client read.
constexpr const char* kHostSettings =
    "[policy_server]\n; Connections.\nbacklog=100\nkeep-alive=yes\nPolicyServerPort=5060\nprotocol=HTTP\n"
    "recv_timeout_secs=60\nsend_timeout_secs=60\nthreads=16\nmax_threads=64\n"
    "[policy_client]\nhost=127.0.0.1\nrecv_timeout_secs=60\nsend_timeout_secs=60\n"
    "[LDAP]\naccess_type=0\nenabled_server=0\n"
    "[ldap-cache]\nldap_cache_TTL_minutes=1440\n[LDAP_SVR_1]\nldap_cache_TTL_minutes=1440\n";

}  // namespace zarotest
