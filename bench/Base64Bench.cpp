// CBase64Utils beside OpenSSL's codec and stringencoders', on the same bytes in the same run. Speeds are in bytes of
// data, not of text. Every codec allocates its result anew, as the library's has to.
//
// The library writes and reads lines of 76 characters. OpenSSL has a codec for lines (of 64) and one for plain blocks;
// stringencoders has the latter only, so for encoding the library does a little more than either block codec.
#include <benchmark/benchmark.h>
#include <modp_b64.h>
#include <openssl/evp.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ZaroMimeUtils.h"

namespace {

struct Free {
  void operator()(void* buffer) const { std::free(buffer); }
};
using Buffer = std::unique_ptr<char, Free>;

Buffer zeroed(std::size_t size) {
  return Buffer(static_cast<char*>(std::calloc(size, 1)));
}

unsigned char* raw(const Buffer& buffer) {
  return reinterpret_cast<unsigned char*>(buffer.get());
}

const unsigned char* raw(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

int length(const std::string& text) {
  return static_cast<int>(text.size());
}

// The same data in the forms that the codecs take; a copy for each thread.
struct Texts {
  std::string bytes;
  std::string block;  // one line
  std::string lines;  // as the library writes it
};

// A result and how long it is; decoders are checked by it.
struct Result {
  Buffer buffer;
  std::size_t size;
};

Result encodeByLibrary(Texts& texts) {
  Buffer text(CBase64Utils().Encode(texts.bytes.data(), length(texts.bytes)));
  return {std::move(text), 0};
}

Result encodeBlockByOpenSsl(Texts& texts) {
  Buffer text = zeroed(texts.bytes.size() / 3 * 4 + 5);
  const int size = EVP_EncodeBlock(raw(text), raw(texts.bytes), length(texts.bytes));
  return {std::move(text), static_cast<std::size_t>(size)};
}

Result encodeLinesByOpenSsl(Texts& texts) {
  const std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)> context(EVP_ENCODE_CTX_new(),
                                                                                EVP_ENCODE_CTX_free);
  Buffer text = zeroed(texts.bytes.size() / 48 * 65 + 130);
  int size = 0;
  int rest = 0;
  EVP_EncodeInit(context.get());
  EVP_EncodeUpdate(context.get(), raw(text), &size, raw(texts.bytes), length(texts.bytes));
  EVP_EncodeFinal(context.get(), raw(text) + size, &rest);
  return {std::move(text), static_cast<std::size_t>(size) + static_cast<std::size_t>(rest)};
}

Result encodeByStringencoders(Texts& texts) {
  Buffer text = zeroed(modp_b64_encode_len(texts.bytes.size()));
  const std::size_t size = modp_b64_encode(text.get(), texts.bytes.data(), texts.bytes.size());
  return {std::move(text), size};
}

Result decodeByLibrary(std::string& text) {
  int size = length(text);
  Buffer bytes(CBase64Utils().Decode(text.data(), &size));
  return {std::move(bytes), static_cast<std::size_t>(size)};
}

Result decodeLinesByLibrary(Texts& texts) {
  return decodeByLibrary(texts.lines);
}

Result decodeBlockByLibrary(Texts& texts) {
  return decodeByLibrary(texts.block);
}

Result decodeBlockByOpenSsl(Texts& texts) {
  Buffer bytes = zeroed(texts.block.size());
  const int size = EVP_DecodeBlock(raw(bytes), raw(texts.block), length(texts.block));
  return {std::move(bytes), static_cast<std::size_t>(size)};
}

Result decodeLinesByOpenSsl(Texts& texts) {
  const std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)> context(EVP_ENCODE_CTX_new(),
                                                                                EVP_ENCODE_CTX_free);
  Buffer bytes = zeroed(texts.lines.size());
  int size = 0;
  int rest = 0;
  EVP_DecodeInit(context.get());
  EVP_DecodeUpdate(context.get(), raw(bytes), &size, raw(texts.lines), length(texts.lines));
  EVP_DecodeFinal(context.get(), raw(bytes) + size, &rest);
  return {std::move(bytes), static_cast<std::size_t>(size) + static_cast<std::size_t>(rest)};
}

Result decodeBlockByStringencoders(Texts& texts) {
  Buffer bytes = zeroed(modp_b64_decode_len(texts.block.size()));
  const std::size_t size = modp_b64_decode(bytes.get(), texts.block.data(), texts.block.size());
  return {std::move(bytes), size};
}

constexpr const char* kLibrary = "library";

struct Case {
  const char* operation;
  const char* codec;
  Result (*run)(Texts&);
};

constexpr Case kCases[] = {
    {"encode", kLibrary, encodeByLibrary},
    {"encode", "openssl-block", encodeBlockByOpenSsl},
    {"encode", "openssl-lines", encodeLinesByOpenSsl},
    {"encode", "stringencoders", encodeByStringencoders},
    {"decode-lines", kLibrary, decodeLinesByLibrary},
    {"decode-lines", "openssl-lines", decodeLinesByOpenSsl},
    {"decode-block", kLibrary, decodeBlockByLibrary},
    {"decode-block", "openssl-block", decodeBlockByOpenSsl},
    {"decode-block", "stringencoders", decodeBlockByStringencoders},
};

// Whole lines, less three bytes: the last group is whole, and the text does not end in a line end.
constexpr std::size_t kSizes[] = {57 * 2 - 3, 57 * 1000 - 3, 57 * 20000 - 3, 57 * 1000000 - 3};

Texts makeTexts(std::size_t size) {
  std::mt19937 random(1);
  Texts texts;
  texts.bytes.resize(size);
  for (char& byte : texts.bytes) {
    byte = static_cast<char>(static_cast<unsigned char>(random()));
  }
  texts.lines = encodeByLibrary(texts).buffer.get();
  const Result block = encodeBlockByOpenSsl(texts);
  texts.block.assign(block.buffer.get(), block.size);
  return texts;
}

// A codec that is fast and wrong would win.
bool agrees(const Case& row) {
  Texts texts = makeTexts(57 * 100 - 3);
  const Result result = row.run(texts);
  if (std::strcmp(row.operation, "encode") != 0) {
    return result.size == texts.bytes.size() && std::memcmp(result.buffer.get(), texts.bytes.data(), result.size) == 0;
  }
  std::string text = result.buffer.get();
  std::string ours = texts.lines;
  for (std::string* lines : {&text, &ours}) {
    for (const char lineEnd : {'\r', '\n'}) {
      std::size_t at = 0;
      while ((at = lines->find(lineEnd, at)) != std::string::npos) {
        lines->erase(at, 1);
      }
    }
  }
  return text == ours && ours == texts.block;
}

void measure(benchmark::State& state, const Case& row, std::size_t size) {
  Texts texts = makeTexts(size);
  for (auto _ : state) {
    benchmark::DoNotOptimize(row.run(texts).buffer.get());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void registerCase(const Case& row, std::size_t size) {
  const std::string name = std::string(row.operation) + "/" + row.codec + "/" + std::to_string(size);
  // One thread by its own time, which what else the machine does disturbs least; all threads by the clock.
  benchmark::RegisterBenchmark(name.c_str(), measure, row, size);
  const unsigned int processors = std::thread::hardware_concurrency();
  if (processors > 1) {
    benchmark::RegisterBenchmark(name.c_str(), measure, row, size)->UseRealTime()->Threads(static_cast<int>(processors));
  }
}

// Prints the runs and, at the end, how the library compares.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const std::string name = run.benchmark_name();
      const std::size_t first = name.find('/');
      const std::size_t second = name.find('/', first + 1);
      const auto speed = run.counters.find("bytes_per_second");
      if (speed != run.counters.end()) {
        m_speeds[{name.substr(0, first), name.substr(second + 1)}][name.substr(first + 1, second - first - 1)] =
            speed->second.value;
      }
    }
  }

  void printRatios() {
    std::printf("\n%-14s %-40s %12s  %s\n", "operation", "bytes", "library MB/s", "times as fast as");
    for (const auto& [what, speeds] : m_speeds) {
      const auto library = speeds.find(kLibrary);
      if (library == speeds.end()) {
        continue;
      }
      std::printf("%-14s %-40s %12.0f ", what.first.c_str(), what.second.c_str(), library->second / 1e6);
      for (const auto& [codec, speed] : speeds) {
        if (codec != kLibrary) {
          std::printf(" %s %.2f", codec.c_str(), library->second / speed);
        }
      }
      std::printf("\n");
    }
  }

 private:
  std::map<std::pair<std::string, std::string>, std::map<std::string, double>> m_speeds;
};

}  // namespace

int main(int argc, char** argv) {
  for (const Case& row : kCases) {
    if (!agrees(row)) {
      std::fprintf(stderr, "%s by %s is wrong\n", row.operation, row.codec);
      return 1;
    }
    for (const std::size_t size : kSizes) {
      registerCase(row, size);
    }
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  return 0;
}
