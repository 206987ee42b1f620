#include "service/SocketFile.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "ZaroRuntime/RuntimeError.h"
#include "installation/Files.h"

namespace {

gid_t groupNamed(const std::string& name) {
  group entry = {};
  group* found = nullptr;
  std::array<char, 16384> buffer = {};
  if (getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    throw zaroruntime::RuntimeError("[mail_filter] socket_group: there is no group " + name,
                                    zaroruntime::FailureKind::Configuration);
  }
  return found->gr_gid;
}

// Whether a program listens at the socket. It sees a connection that ends at once.
bool isInUse(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) {
    throwErrno(path, "cannot make a socket");
  }
  // EAGAIN: its queue of connections is full. EPROTOTYPE: it is of another kind.
  const bool answers = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
                       errno == EAGAIN || errno == EPROTOTYPE;
  close(descriptor);
  return answers;
}

}  // namespace

SocketFile::SocketFile(const std::string& socket) {
  const std::string family = "unix:";
  if (socket.compare(0, family.size(), family) != 0) {
    return;
  }
  m_path = socket.substr(family.size());
  const std::filesystem::path directory = std::filesystem::path(m_path).parent_path();
  constexpr mode_t kOthersMayPass = 0755;
  if (mkdir(directory.c_str(), kOthersMayPass) == 0) {
    chmod(directory.c_str(), kOthersMayPass);  // whatever the umask
  } else if (errno != EEXIST) {
    throwErrno(directory, "cannot make the directory of the socket");
  }
  if (isInUse(m_path)) {
    throw zaroruntime::RuntimeError("[mail_filter] another program listens at " + m_path,
                                    zaroruntime::FailureKind::Configuration);
  }
}

void SocketFile::open(mode_t mode, const std::string& group) {
  if (m_path.empty()) {
    return;
  }
  constexpr auto kSameOwner = static_cast<uid_t>(-1);
  if (!group.empty() && chown(m_path.c_str(), kSameOwner, groupNamed(group)) != 0) {
    throwErrno(m_path, "cannot give the socket its group");
  }
  struct stat status = {};
  if (chmod(m_path.c_str(), mode) != 0 || stat(m_path.c_str(), &status) != 0) {
    throwErrno(m_path, "cannot give the socket its mode");
  }
  m_device = status.st_dev;
  m_inode = status.st_ino;
}

bool SocketFile::isThere() const {
  struct stat status = {};
  return m_path.empty() || (stat(m_path.c_str(), &status) == 0 && status.st_dev == m_device && status.st_ino == m_inode);
}

void SocketFile::remove() const {
  if (!m_path.empty() && isThere()) {
    unlink(m_path.c_str());
  }
}
