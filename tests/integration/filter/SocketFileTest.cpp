// The file of a unix socket, among what others left or opened there.
#include "service/SocketFile.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "support/TemporaryDirectory.h"

namespace {

int listenAt(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(descriptor, 1), 0);
  return descriptor;
}

TEST(SocketFile, takesNoSocketAwayFromWhatListensThere) {
  const zarotest::TemporaryDirectory directory;
  const std::string path = directory.path("run/filter.sock");
  EXPECT_NO_THROW(SocketFile("unix:" + path));  // makes the directory
  const int listening = listenAt(path);
  EXPECT_THROW(SocketFile("unix:" + path), zaroruntime::RuntimeError);
  close(listening);
  EXPECT_NO_THROW(SocketFile("unix:" + path));  // left behind
}

}  // namespace
