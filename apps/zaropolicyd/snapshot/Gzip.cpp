#include "snapshot/Gzip.h"

#include <zlib.h>

#include <algorithm>
#include <limits>

#include "ZaroRuntime/RuntimeError.h"

namespace {

class Deflater {
 public:
  Deflater() {
    // Addresses shrink by 70 to 80 percent at any level; this one takes a third of the default's time.
    constexpr int kLevel = 3;
    constexpr int kWindowOfGzip = 15 + 16;
    constexpr int kMemory = 8;
    if (deflateInit2(&m_stream, kLevel, Z_DEFLATED, kWindowOfGzip, kMemory, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw zaroruntime::RuntimeError("zlib cannot begin");
    }
  }
  ~Deflater() { deflateEnd(&m_stream); }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  z_stream& stream() { return m_stream; }

 private:
  z_stream m_stream = {};
};

}  // namespace

std::string gzipped(std::string_view text) {
  constexpr std::size_t kMostAtOnce = std::numeric_limits<uInt>::max();
  Deflater deflater;
  z_stream& stream = deflater.stream();
  std::string result(text.size() / 4 + 1024, '\0');
  std::size_t taken = 0;
  std::size_t made = 0;
  for (int state = Z_OK; state != Z_STREAM_END;) {
    if (stream.avail_in == 0) {
      stream.avail_in = static_cast<uInt>(std::min(text.size() - taken, kMostAtOnce));
      stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data() + taken));
      taken += stream.avail_in;
    }
    if (made == result.size()) {
      result.resize(result.size() * 2);
    }
    stream.avail_out = static_cast<uInt>(std::min(result.size() - made, kMostAtOnce));
    stream.next_out = reinterpret_cast<Bytef*>(result.data() + made);
    const uInt room = stream.avail_out;
    state = deflate(&stream, taken == text.size() ? Z_FINISH : Z_NO_FLUSH);
    if (state == Z_STREAM_ERROR) {
      throw zaroruntime::RuntimeError("zlib failed");
    }
    made += room - stream.avail_out;
  }
  result.resize(made);
  result.shrink_to_fit();
  return result;
}
