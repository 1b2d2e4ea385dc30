// UTF-8 <-> UTF-16 conversion with U+FFFD for anything malformed.
#include "zelcore/Strings.h"

namespace zelcore {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUTF16(UTF16String& out, char32_t c) {
  if (c < 0x10000) {
    out.push_back(static_cast<UTF16Char>(c));
  } else {
    c -= 0x10000;
    out.push_back(static_cast<UTF16Char>(0xD800 + (c >> 10)));
    out.push_back(static_cast<UTF16Char>(0xDC00 + (c & 0x3FF)));
  }
}

void AppendUTF8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace

// Decodes by the table of well-formed UTF-8 sequences: the lead byte fixes the length and the range of
// the second byte (which excludes overlong forms, surrogates and values above U+10FFFF); later bytes are
// 80..BF. A sequence that breaks off yields one U+FFFD for the bytes read so far, and decoding resumes at
// the byte that broke it.
UTF16String UTF8ToUTF16(const std::string& text) {
  UTF16String out;
  out.reserve(text.size());
  const std::size_t size = text.size();
  std::size_t i = 0;
  while (i < size) {
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    if (lead < 0x80) {
      out.push_back(lead);
      ++i;
      continue;
    }
    int trailing;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    char32_t c;
    if (lead >= 0xC2 && lead <= 0xDF) {
      trailing = 1;
      c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      trailing = 2;
      c = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      trailing = 3;
      c = lead & 0x07;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      out.push_back(kReplacement);
      ++i;
      continue;
    }
    std::size_t next = i + 1;
    bool valid = true;
    for (int k = 0; k < trailing; ++k, ++next) {
      if (next >= size) {
        valid = false;
        break;
      }
      const unsigned char byte = static_cast<unsigned char>(text[next]);
      if (byte < low || byte > high) {
        valid = false;
        break;
      }
      c = (c << 6) | (byte & 0x3F);
      low = 0x80;
      high = 0xBF;
    }
    AppendUTF16(out, valid ? c : kReplacement);
    i = next;
  }
  return out;
}

std::string UTF16ToUTF8(const UTF16String& text) {
  std::string out;
  out.reserve(text.size());
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size; ++i) {
    const char32_t unit = text[i];
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < size && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      AppendUTF8(out, 0x10000 + ((unit - 0xD800) << 10) + (text[i + 1] - 0xDC00));
      ++i;
    } else if (unit >= 0xD800 && unit <= 0xDFFF) {
      AppendUTF8(out, kReplacement);
    } else {
      AppendUTF8(out, unit);
    }
  }
  return out;
}

UTF16String Wide(const char* text) {
  return UTF8ToUTF16(text != nullptr ? std::string(text) : std::string());
}

}  // namespace zelcore
