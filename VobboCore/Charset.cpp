#include "Charset.h"

#include <iconv.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "Text.h"

namespace vobbo::Charset {

namespace {

std::string lowered(std::string_view text) {
  return Text::asciiLower(Text::trim(text, " \t\r\n\"'"));
}

// iconv_t is a resource: closed on every path.
class Converter {
 public:
  explicit Converter(const std::string& from) : cd_(iconv_open("UTF-8", from.c_str())) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (ok()) iconv_close(cd_);
  }
  bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }

  std::string convert(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() * 2 + 16);
    char* in = const_cast<char*>(bytes.data());  // iconv's signature; it does not write here
    size_t inLeft = bytes.size();
    char buffer[4096];
    while (inLeft > 0) {
      char* dst = buffer;
      size_t dstLeft = sizeof buffer;
      size_t rc = iconv(cd_, &in, &inLeft, &dst, &dstLeft);
      out.append(buffer, sizeof buffer - dstLeft);
      if (rc != static_cast<size_t>(-1) || errno == E2BIG) continue;
      // EILSEQ or EINVAL: an unmappable or truncated sequence. Show it and move on.
      out += "\uFFFD";
      ++in;
      --inLeft;
      iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    }
    char* dst = buffer;
    size_t dstLeft = sizeof buffer;
    iconv(cd_, nullptr, nullptr, &dst, &dstLeft);  // flush any shift state
    out.append(buffer, sizeof buffer - dstLeft);
    return out;
  }

 private:
  iconv_t cd_;
};

}  // namespace

bool isUTF8Family(std::string_view charset) {
  std::string name = lowered(charset);
  return name.empty() || name == "utf-8" || name == "utf8" || name == "us-ascii" ||
         name == "ascii" || name == "ansi_x3.4-1968" || name == "us_ascii";
}

bool isKnown(std::string_view charset) {
  std::string name = lowered(charset);
  if (auto star = name.find('*'); star != std::string::npos) name.resize(star);
  return isUTF8Family(name) || Converter(name).ok();
}

std::optional<std::string> toUTF8(std::string_view bytes, std::string_view charset) {
  std::string name = lowered(charset);
  // RFC 2231 language suffix: "utf-8*en".
  if (auto star = name.find('*'); star != std::string::npos) name.resize(star);
  if (isUTF8Family(name)) {
    return Text::isValidUTF8(bytes) ? std::string(bytes) : Text::sanitizeUTF8(bytes);
  }
  if (name == "iso-8859-1" || name == "latin1" || name == "latin-1" || name == "iso8859-1") {
    return latin1ToUTF8(bytes);
  }
  Converter converter(name);
  if (!converter.ok()) return std::nullopt;
  return converter.convert(bytes);
}

std::string latin1ToUTF8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size() + bytes.size() / 4);
  for (char c : bytes) {
    auto b = static_cast<unsigned char>(c);
    if (b < 0x80) {
      out += c;
    } else {
      out += static_cast<char>(0xC0 | b >> 6);
      out += static_cast<char>(0x80 | (b & 0x3F));
    }
  }
  return out;
}

std::string latin1FromUTF8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    auto b = static_cast<unsigned char>(text[i]);
    auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
    if ((b == 0xC2 || b == 0xC3) && (next & 0xC0) == 0x80) {
      out += static_cast<char>((b & 0x03) << 6 | (next & 0x3F));
      ++i;
    } else {
      out += static_cast<char>(b);
    }
  }
  return out;
}

}  // namespace vobbo::Charset
