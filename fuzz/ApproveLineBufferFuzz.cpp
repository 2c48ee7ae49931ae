// Bytes fed in arbitrary pieces: every line handed back is exactly what stood
// between two line feeds, and the buffer never holds a line feed it could hand out.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ApproveWire.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  vobbo::ApproveLineBuffer buffer;
  std::string expected(input);
  size_t at = 0;
  size_t consumed = 0;
  while (at < input.size()) {
    size_t piece = 1 + static_cast<unsigned char>(input[at]) % 64;
    auto line = buffer.feed(input.substr(at, piece));
    at += std::min(piece, input.size() - at);
    while (line) {
      size_t end = expected.find('\n', consumed);
      if (end == std::string::npos || *line != expected.substr(consumed, end - consumed))
        std::abort();
      consumed = end + 1;
      line = buffer.feed({});
    }
  }
  if (buffer.buf.find('\n') != std::string::npos) std::abort();
  if (buffer.overflowing() != (buffer.buf.size() > vobbo::ApproveWire::kMaxLine)) std::abort();
  return 0;
}
