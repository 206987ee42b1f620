// The peer of the policy server: libmicrohttpd with the same bytes at the same path, on a pool of as many threads.
//
//   microhttpd_peer PORT THREADS FILE
//
// Ends with its standard input.
#include <arpa/inet.h>
#include <microhttpd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace {

MHD_Result answer(void* response, MHD_Connection* connection, const char* url, const char* /*method*/,
                  const char* /*version*/, const char* /*upload*/, std::size_t* /*uploaded*/, void** /*state*/) {
  if (std::strcmp(url, "/v1/policy") != 0) {
    return MHD_NO;
  }
  return MHD_queue_response(connection, MHD_HTTP_OK, static_cast<MHD_Response*>(response));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s PORT THREADS FILE\n", argv[0]);
    return EXIT_FAILURE;
  }
  std::ostringstream content;
  content << std::ifstream(argv[3], std::ios::binary).rdbuf();
  std::string body = content.str();
  MHD_Response* response = MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_PERSISTENT);
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "application/x-ndjson");
  sockaddr_in place = {};
  place.sin_family = AF_INET;
  place.sin_port = htons(static_cast<unsigned short>(std::atoi(argv[1])));
  place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  MHD_Daemon* daemon = MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, 0, nullptr, nullptr, answer, response,
                                        MHD_OPTION_SOCK_ADDR, &place, MHD_OPTION_THREAD_POOL_SIZE,
                                        static_cast<unsigned int>(std::atoi(argv[2])), MHD_OPTION_END);
  if (daemon == nullptr) {
    std::perror("cannot listen");
    return EXIT_FAILURE;
  }
  while (std::getchar() != EOF) {
  }
  MHD_stop_daemon(daemon);
  MHD_destroy_response(response);
  return EXIT_SUCCESS;
}
