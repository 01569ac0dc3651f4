#include "base/format.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace nw {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
// Windows hosts store wide text as UTF-16; everyone else as UTF-32.
constexpr bool kUtf16 = sizeof(wchar_t) == 2;

using WideUnit = std::make_unsigned_t<wchar_t>;

bool IsSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

// Reads one code point of wide text at p and advances p past it. end bounds the text; nullptr
// means the text runs to its terminator, so the unit after a high surrogate is always readable.
char32_t NextWide(const wchar_t*& p, const wchar_t* end) {
  const char32_t c = static_cast<WideUnit>(*p++);
  if constexpr (kUtf16) {
    if (c >= 0xD800 && c <= 0xDBFF && p != end) {
      const char32_t low = static_cast<WideUnit>(*p);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        ++p;
        return 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
      }
    }
    return IsSurrogate(c) ? kReplacement : c;
  } else {
    return c > 0x10FFFF || IsSurrogate(c) ? kReplacement : c;
  }
}

// Reads one code point of UTF-8 at p (p != end) and advances p. A byte that does not start a
// well-formed sequence yields U+FFFD and is skipped alone, so each bad byte costs one U+FFFD.
char32_t NextUtf8(const char*& p, const char* end) {
  const unsigned char lead = static_cast<unsigned char>(*p++);
  if (lead < 0x80) return lead;
  int extra;
  char32_t c;
  char32_t min;
  if (lead >= 0xC2 && lead <= 0xDF) {
    extra = 1, c = lead & 0x1F, min = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    extra = 2, c = lead & 0x0F, min = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    extra = 3, c = lead & 0x07, min = 0x10000;
  } else {
    return kReplacement;
  }
  const char* q = p;
  for (; extra > 0; --extra, ++q) {
    if (q == end || (static_cast<unsigned char>(*q) & 0xC0) != 0x80) return kReplacement;
    c = (c << 6) | (static_cast<unsigned char>(*q) & 0x3F);
  }
  if (c < min || c > 0x10FFFF || IsSurrogate(c)) return kReplacement;
  p = q;
  return c;
}

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) return out.push_back(static_cast<char>(c));
  const std::size_t n = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
  char bytes[4];
  for (std::size_t i = n - 1; i > 0; --i, c >>= 6) bytes[i] = static_cast<char>(0x80 | (c & 0x3F));
  bytes[0] = static_cast<char>(((0xFF00 >> n) & 0xFF) | c);  // 110xxxxx, 1110xxxx or 11110xxx
  out.append(bytes, n);
}

std::size_t WideUnits(char32_t c) { return kUtf16 && c >= 0x10000 ? 2 : 1; }

void AppendWide(std::wstring& out, char32_t c) {
  if constexpr (kUtf16) {
    if (c >= 0x10000) {
      c -= 0x10000;
      out.push_back(static_cast<wchar_t>(0xD800 + (c >> 10)));
      out.push_back(static_cast<wchar_t>(0xDC00 + (c & 0x3FF)));
      return;
    }
  }
  out.push_back(static_cast<wchar_t>(c));
}

// Collects UTF-8: the text of the debugger output and of the simulator's files.
// Wide text a code point at a time, for the sinks off the console's hot path.
template <class Sink>
void WideTextByCodePoint(Sink& sink, const wchar_t* p, const wchar_t* end) {
  while (p != end && *p != 0) sink.CodePoint(NextWide(p, end));
}

struct Utf8Sink {
  std::string& out;

  void Ascii(std::string_view text) { out.append(text); }
  void Fill(char c, std::size_t n) { out.append(n, c); }
  void CodePoint(char32_t c) { AppendUtf8(out, c); }
  void WideText(const wchar_t* p, const wchar_t* end) { WideTextByCodePoint(*this, p, end); }
  // Narrow text is already UTF-8 (or whatever the caller meant): its bytes go out untouched.
  void Narrow(std::string_view text) { out.append(text); }
};

// The bytes the C runtime writes for wide text under its default ("C") locale, which the
// program never changes: U+0000 to U+00FF become the byte of the same value. The runtime cannot
// write any other character; we write a '?' for each such code point (a UTF-16 pair is one code
// point, so both hosts agree) instead of losing the rest of the line. Narrow text reaches the
// stream through the same locale, where every byte stands for itself, so it goes out untouched.
struct ConsoleSink {
  std::string& out;
  std::size_t units = 0;

  void Ascii(std::string_view text) {
    out.append(text);
    units += text.size();
  }
  void Fill(char c, std::size_t n) {
    out.append(n, c);
    units += n;
  }
  void CodePoint(char32_t c) {
    out.push_back(c <= 0xFF ? static_cast<char>(c) : kUnrepresentable);
    units += WideUnits(c);
  }
  void Narrow(std::string_view text) {
    out.append(text);
    units += text.size();
  }
  // The hot path of every listing: runs of U+0000 to U+00FF are copied a byte a unit into a
  // local chunk and appended at once, and only other units take the code-point path.
  void WideText(const wchar_t* p, const wchar_t* end) {
    // Counters stay local: the byte stores below may alias anything, so a member counter
    // would be written back on every character.
    char chunk[256];
    std::size_t n = 0;
    std::size_t extraUnits = 0;  // units beyond one for each byte written
    while (p != end && *p != 0) {
      const auto unit = static_cast<WideUnit>(*p);
      if (unit <= 0xFF) {
        chunk[n++] = static_cast<char>(unit);
        ++p;
      } else {
        const char32_t c = NextWide(p, end);
        chunk[n++] = kUnrepresentable;
        extraUnits += WideUnits(c) - 1;
      }
      if (n == sizeof chunk) {
        out.append(chunk, n);
        units += n;
        n = 0;
      }
    }
    out.append(chunk, n);
    units += n + extraUnits;
  }

  static constexpr char kUnrepresentable = '?';
};

struct WideSink {
  std::wstring& out;

  void Ascii(std::string_view text) { out.append(text.begin(), text.end()); }
  void Fill(char c, std::size_t n) { out.append(n, static_cast<wchar_t>(c)); }
  void CodePoint(char32_t c) { AppendWide(out, c); }
  void WideText(const wchar_t* p, const wchar_t* end) { WideTextByCodePoint(*this, p, end); }
  void Narrow(std::string_view text) {
    for (const char *p = text.data(), *end = p + text.size(); p != end;) {
      AppendWide(out, NextUtf8(p, end));
    }
  }
};

// Wrapped so that helpers can share one argument cursor.
struct Args {
  va_list ap;
};

enum class Length { kDefault, kChar, kShort, kLong, kLongLong, kSize };

struct Directive {
  bool left = false;
  bool plus = false;
  bool space = false;
  bool alt = false;
  bool zero = false;
  int width = 0;
  int precision = -1;  // -1 when none was given
};

bool ApplyFlag(Directive& directive, int c) {
  bool* flag = c == '-'   ? &directive.left
               : c == '+' ? &directive.plus
               : c == ' ' ? &directive.space
               : c == '#' ? &directive.alt
               : c == '0' ? &directive.zero
                          : nullptr;
  if (flag != nullptr) *flag = true;
  return flag != nullptr;
}

template <class CharT>
int ParseNumber(const CharT*& p) {
  int n = 0;
  for (; *p >= '0' && *p <= '9'; ++p) {
    const int digit = static_cast<int>(*p - '0');
    n = n > (INT_MAX - digit) / 10 ? INT_MAX : n * 10 + digit;
  }
  return n;
}

template <class CharT>
Length ParseLength(const CharT*& p) {
  const CharT c = *p;
  if (c == 'h' || c == 'l') {
    const bool doubled = *++p == c;
    p += doubled;
    if (c == 'h') return doubled ? Length::kChar : Length::kShort;
    return doubled ? Length::kLongLong : Length::kLong;
  }
  if (c == 'j') return ++p, Length::kLongLong;
  if (c == 'z' || c == 't') return ++p, Length::kSize;
  if (c != 'I') return Length::kDefault;
  if ((p[1] == '6' && p[2] == '4') || (p[1] == '3' && p[2] == '2')) {
    p += 3;
    return p[-1] == '4' ? Length::kLongLong : Length::kDefault;
  }
  ++p;
  return Length::kSize;
}

// "l" and "h" pick the text width explicitly; otherwise "%s" follows the format's own width.
template <class CharT>
bool TakesWideText(int conv, Length length) {
  if (length == Length::kLong) return true;
  if (length == Length::kShort) return false;
  return conv == 'S' || conv == 'C' || std::is_same_v<CharT, wchar_t>;
}

// Callers pass 32-bit values unless they asked for more; a long is never read, as it is 32 bits
// on the product's platform but may be 64 here.
long long ReadSigned(Args& args, Length length) {
  switch (length) {
    case Length::kChar:
      return static_cast<signed char>(va_arg(args.ap, int));
    case Length::kShort:
      return static_cast<short>(va_arg(args.ap, int));
    case Length::kLongLong:
      return va_arg(args.ap, long long);
    case Length::kSize:
      return static_cast<std::make_signed_t<std::size_t>>(va_arg(args.ap, std::size_t));
    default:
      return va_arg(args.ap, int);
  }
}

unsigned long long ReadUnsigned(Args& args, Length length) {
  switch (length) {
    case Length::kChar:
      return static_cast<unsigned char>(va_arg(args.ap, unsigned int));
    case Length::kShort:
      return static_cast<unsigned short>(va_arg(args.ap, unsigned int));
    case Length::kLongLong:
      return va_arg(args.ap, unsigned long long);
    case Length::kSize:
      return va_arg(args.ap, std::size_t);
    default:
      return va_arg(args.ap, unsigned int);
  }
}

void ToUpperAscii(char* begin, char* end) {
  for (; begin != end; ++begin) {
    if (*begin >= 'a' && *begin <= 'z') *begin = static_cast<char>(*begin - 'a' + 'A');
  }
}

// Pads what emit writes (length characters) to the field width.
template <class Sink, class Emit>
void Padded(Sink& sink, const Directive& directive, std::size_t length, Emit emit) {
  const std::size_t width = static_cast<std::size_t>(directive.width);
  const std::size_t pad = width > length ? width - length : 0;
  if (!directive.left) sink.Fill(' ', pad);
  emit();
  if (directive.left) sink.Fill(' ', pad);
}

// A number is sign/prefix, leading zeros, then digits; with zero_fill the zeros take up the width.
template <class Sink>
void PutNumber(Sink& sink, const Directive& directive, std::string_view prefix, std::size_t zeros,
               std::string_view body, bool zero_fill) {
  const std::size_t width = static_cast<std::size_t>(directive.width);
  std::size_t length = prefix.size() + zeros + body.size();
  if (zero_fill && width > length) {
    zeros += width - length;
    length = width;
  }
  // A field that fits a small buffer goes to the sink in one piece: every listing prints
  // numbers by the million.
  char field[64];
  const std::size_t size = std::max(width, length);
  if (size <= sizeof field) {
    const std::size_t pad = size - length;
    char* out = field;
    if (!directive.left) out = std::fill_n(out, pad, ' ');
    out = std::copy(prefix.begin(), prefix.end(), out);
    out = std::fill_n(out, zeros, '0');
    out = std::copy(body.begin(), body.end(), out);
    if (directive.left) std::fill_n(out, pad, ' ');
    sink.Ascii({field, size});
    return;
  }
  Padded(sink, directive, length, [&] {
    sink.Ascii(prefix);
    sink.Fill('0', zeros);
    sink.Ascii(body);
  });
}

template <class Sink>
void PutInteger(Sink& sink, const Directive& directive, int conv, unsigned long long value,
                bool negative) {
  const int base = conv == 'o' ? 8 : (conv == 'x' || conv == 'X') ? 16 : 10;
  char digits[24];
  std::size_t count = 0;
  if (value != 0 || directive.precision != 0) {  // C prints no digit for a zero with precision 0
    // Decimal has a conversion of its own, much faster than the one for any base.
    const std::to_chars_result result =
        base == 10 ? std::to_chars(digits, digits + sizeof digits, value)
                   : std::to_chars(digits, digits + sizeof digits, value, base);
    count = static_cast<std::size_t>(result.ptr - digits);
    if (conv == 'X') ToUpperAscii(digits, digits + count);
  }
  const std::size_t precision =
      directive.precision < 0 ? 0 : static_cast<std::size_t>(directive.precision);
  std::size_t zeros = precision > count ? precision - count : 0;
  char prefix[2];
  std::size_t prefix_length = 0;
  if (conv == 'd' || conv == 'i') {
    if (negative) {
      prefix[prefix_length++] = '-';
    } else if (directive.plus || directive.space) {
      prefix[prefix_length++] = directive.plus ? '+' : ' ';
    }
  } else if (directive.alt) {
    if (base == 8 && zeros == 0 && (count == 0 || digits[0] != '0')) zeros = 1;
    if (base == 16 && value != 0) {
      prefix[prefix_length++] = '0';
      prefix[prefix_length++] = static_cast<char>(conv);
    }
  }
  PutNumber(sink, directive, {prefix, prefix_length}, zeros, {digits, count},
            directive.zero && !directive.left && directive.precision < 0);
}

int ExponentOf(const char* begin, const char* end) {
  const char* e = std::find(begin, end, 'e');
  int exponent = 0;
  if (e != end) std::from_chars(e + (e[1] == '+' ? 2 : 1), end, exponent);
  return exponent;
}

// Drops the zeros that end the fraction of a mantissa (and a bare point), keeping any exponent.
char* StripFractionZeros(char* begin, char* end) {
  char* exponent = std::find(begin, end, 'e');
  if (std::find(begin, exponent, '.') == exponent) return end;
  char* cut = exponent;
  while (cut[-1] == '0') --cut;
  if (cut[-1] == '.') --cut;
  std::memmove(cut, exponent, static_cast<std::size_t>(end - exponent));
  return cut + (end - exponent);
}

// Writes a finite, non-negative value as C's conversion kind ('f', 'e', 'g' or 'a') would,
// without the "0x" of 'a'. limit leaves room for the point that '#' may insert.
char* FormatFloat(char* buf, char* limit, double value, int kind, int precision, bool alt) {
  char* end;
  switch (kind) {
    case 'f':
      end = std::to_chars(buf, limit, value, std::chars_format::fixed, precision).ptr;
      break;
    case 'e':
      end = std::to_chars(buf, limit, value, std::chars_format::scientific, precision).ptr;
      break;
    case 'a':
      end = precision < 0 ? std::to_chars(buf, limit, value, std::chars_format::hex).ptr
                          : std::to_chars(buf, limit, value, std::chars_format::hex, precision).ptr;
      break;
    default: {
      // %g: the exponent of the %e form decides between the fixed and the scientific form.
      const int significant = precision == 0 ? 1 : precision;
      end = std::to_chars(buf, limit, value, std::chars_format::scientific, significant - 1).ptr;
      const int exponent = ExponentOf(buf, end);
      if (exponent >= -4 && exponent < significant) {
        end = std::to_chars(buf, limit, value, std::chars_format::fixed, significant - 1 - exponent)
                  .ptr;
      }
      if (!alt) end = StripFractionZeros(buf, end);
    }
  }
  if (alt) {
    char* marker = std::find(buf, end, kind == 'a' ? 'p' : 'e');
    if (std::find(buf, marker, '.') == marker) {
      std::memmove(marker + 1, marker, static_cast<std::size_t>(end - marker));
      *marker = '.';
      ++end;
    }
  }
  return end;
}

template <class Sink>
void PutFloat(Sink& sink, const Directive& directive, int conv, double value) {
  const bool upper = conv >= 'A' && conv <= 'Z';
  const int kind = upper ? conv - 'A' + 'a' : conv;
  char prefix[3];
  std::size_t prefix_length = 0;
  if (std::signbit(value)) {
    prefix[prefix_length++] = '-';
  } else if (directive.plus || directive.space) {
    prefix[prefix_length++] = directive.plus ? '+' : ' ';
  }
  value = std::fabs(value);
  if (!std::isfinite(value)) {
    const char* text = std::isnan(value) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
    PutNumber(sink, directive, {prefix, prefix_length}, 0, {text, 3}, false);
    return;
  }
  if (kind == 'a') {
    prefix[prefix_length++] = '0';
    prefix[prefix_length++] = upper ? 'X' : 'x';
  }
  const int precision = directive.precision >= 0 ? directive.precision : kind == 'a' ? -1 : 6;
  // The fixed form of the largest double has 309 digits before the point.
  char local[400];
  std::string spill;
  char* buf = local;
  std::size_t capacity = sizeof local;
  const std::size_t needed = 340 + static_cast<std::size_t>(precision < 0 ? 0 : precision);
  if (needed > capacity) {
    spill.resize(needed);
    buf = spill.data();
    capacity = needed;
  }
  char* end = FormatFloat(buf, buf + capacity - 1, value, kind, precision, directive.alt);
  if (upper) ToUpperAscii(buf, end);
  PutNumber(sink, directive, {prefix, prefix_length}, 0, {buf, static_cast<std::size_t>(end - buf)},
            directive.zero && !directive.left);
}

template <class Sink>
void PutPointer(Sink& sink, const Directive& directive, const void* pointer) {
  unsigned long long bits = reinterpret_cast<std::uintptr_t>(pointer);
  char text[16];
  for (int i = 15; i >= 0; --i, bits >>= 4) text[i] = "0123456789ABCDEF"[bits & 0xF];
  PutNumber(sink, directive, {}, 0, {text, sizeof text}, false);
}

template <class Sink>
void PutNarrowString(Sink& sink, const Directive& directive, const char* text) {
  if (text == nullptr) text = "(null)";
  std::size_t length = 0;
  if (directive.precision < 0) {
    length = std::strlen(text);
  } else {
    // With a precision the text need not be terminated, so never look past it.
    while (length < static_cast<std::size_t>(directive.precision) && text[length] != '\0') ++length;
  }
  Padded(sink, directive, length, [&] { sink.Narrow({text, length}); });
}

template <class Sink>
void PutWideText(Sink& sink, const wchar_t* p, const wchar_t* end) {
  sink.WideText(p, end);
}

// Wide text formatted into wide text is copied unit for unit, as the platform's wide formatting
// does: a lone surrogate in a path (a name byte the emulated host could say no other way) must
// reach the file system as it was.
void PutWideText(WideSink& sink, const wchar_t* p, const wchar_t* end) {
  while (p != end && *p != 0) sink.out.push_back(*p++);
}

template <class Sink>
void PutWideString(Sink& sink, const Directive& directive, const wchar_t* text) {
  if (text == nullptr) return PutNarrowString(sink, directive, nullptr);
  // Width and precision count code points; without either the text need not be measured.
  const wchar_t* end = nullptr;
  std::size_t count = 0;
  if (directive.width > 0 || directive.precision >= 0) {
    const std::size_t limit =
        directive.precision < 0 ? SIZE_MAX : static_cast<std::size_t>(directive.precision);
    end = text;
    for (; count < limit && *end != 0; ++count) NextWide(end, nullptr);
  }
  Padded(sink, directive, count, [&] { PutWideText(sink, text, end); });
}

template <class Sink>
void PutFormatText(Sink& sink, const char* begin, const char* end) {
  sink.Narrow({begin, static_cast<std::size_t>(end - begin)});
}

template <class Sink>
void PutFormatText(Sink& sink, const wchar_t* begin, const wchar_t* end) {
  PutWideText(sink, begin, end);
}

enum class Conversion { kUnknown, kPercent, kSigned, kUnsigned, kPointer, kFloat, kString, kChar };

// The conversions this system knows, by their character.
Conversion Classify(int conv) {
  switch (conv) {
    case '%':
      return Conversion::kPercent;
    case 'd':
    case 'i':
      return Conversion::kSigned;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      return Conversion::kUnsigned;
    case 'p':
      return Conversion::kPointer;
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      return Conversion::kFloat;
    case 's':
    case 'S':
      return Conversion::kString;
    case 'c':
    case 'C':
      return Conversion::kChar;
    default:
      return Conversion::kUnknown;
  }
}

// Prints one conversion; false when conv is not one this system knows.
template <class CharT, class Sink>
bool Convert(Sink& sink, const Directive& directive, Length length, int conv, Args& args) {
  switch (Classify(conv)) {
    case Conversion::kPercent:
      sink.Ascii("%");
      return true;
    case Conversion::kSigned: {
      const long long value = ReadSigned(args, length);
      const auto magnitude = static_cast<unsigned long long>(value);
      PutInteger(sink, directive, conv, value < 0 ? 0 - magnitude : magnitude, value < 0);
      return true;
    }
    case Conversion::kUnsigned:
      PutInteger(sink, directive, conv, ReadUnsigned(args, length), false);
      return true;
    case Conversion::kPointer:
      PutPointer(sink, directive, va_arg(args.ap, const void*));
      return true;
    case Conversion::kFloat:
      PutFloat(sink, directive, conv, va_arg(args.ap, double));
      return true;
    case Conversion::kString:
      if (TakesWideText<CharT>(conv, length)) {
        PutWideString(sink, directive, va_arg(args.ap, const wchar_t*));
      } else {
        PutNarrowString(sink, directive, va_arg(args.ap, const char*));
      }
      return true;
    case Conversion::kChar: {
      const int value = va_arg(args.ap, int);
      if (TakesWideText<CharT>(conv, length)) {
        const wchar_t unit = static_cast<wchar_t>(value);
        const wchar_t* q = &unit;
        const char32_t c = NextWide(q, &unit + 1);
        Padded(sink, directive, 1, [&] { sink.CodePoint(c); });
      } else {
        const char byte = static_cast<char>(value);
        Padded(sink, directive, 1, [&] { sink.Narrow({&byte, 1}); });
      }
      return true;
    }
    case Conversion::kUnknown:
      break;
  }
  return false;
}

// A conversion as a format writes it. A width or precision written as '*' is read from the
// arguments each time the conversion is printed.
struct ParsedDirective {
  Directive directive;
  Length length = Length::kDefault;
  int conv = 0;
  bool widthFromArgs = false;
  bool precisionFromArgs = false;
};

// Parses what follows a '%' at p and leaves p on the conversion character.
template <class CharT>
ParsedDirective ParseDirective(const CharT*& p) {
  ParsedDirective parsed;
  while (ApplyFlag(parsed.directive, static_cast<int>(*p))) ++p;
  if (*p == '*') {
    ++p;
    parsed.widthFromArgs = true;
  } else {
    parsed.directive.width = ParseNumber(p);
  }
  if (*p == '.') {
    ++p;
    if (*p == '*') {
      ++p;
      parsed.precisionFromArgs = true;
    } else {
      parsed.directive.precision = ParseNumber(p);
    }
  }
  parsed.length = ParseLength(p);
  parsed.conv = static_cast<int>(*p);
  return parsed;
}

// The parsed directive with its '*' values taken from the arguments, width first.
Directive Resolve(const ParsedDirective& parsed, Args& args) {
  Directive directive = parsed.directive;
  if (parsed.widthFromArgs) {
    const int width = va_arg(args.ap, int);
    directive.left |= width < 0;
    directive.width = width == INT_MIN ? INT_MAX : width < 0 ? -width : width;
  }
  if (parsed.precisionFromArgs) {
    const int precision = va_arg(args.ap, int);
    directive.precision = precision < 0 ? -1 : precision;  // a negative one counts as none
  }
  return directive;
}

template <class CharT, class Sink>
void Format(Sink& sink, const CharT* format, va_list ap) {
  if (format == nullptr) return;
  Args args;
  va_copy(args.ap, ap);
  for (const CharT* p = format; *p != 0;) {
    if (*p != '%') {
      const CharT* run = p;
      while (*p != 0 && *p != '%') ++p;
      PutFormatText(sink, run, p);
      continue;
    }
    const CharT* start = p++;
    const ParsedDirective parsed = ParseDirective(p);
    const Directive directive = Resolve(parsed, args);
    if (Convert<CharT>(sink, directive, parsed.length, parsed.conv, args)) {
      ++p;
    } else {
      // An unknown conversion, or a format that ends inside one, is printed as written; its
      // last character is left to be printed as ordinary text.
      PutFormatText(sink, start, p);
    }
  }
  va_end(args.ap);
}

// A wide format parsed once for the console: pieces of an optional conversion followed by
// literal text already turned into console bytes.
struct CompiledPiece {
  enum class Kind { kText, kConversion, kUnknown };
  Kind kind = Kind::kText;
  ParsedDirective parsed;
  std::string text;
  std::size_t units = 0;
};

struct CompiledFormat {
  std::wstring source;
  std::vector<CompiledPiece> pieces;
};

void AppendConsoleText(CompiledPiece& piece, const wchar_t* begin, const wchar_t* end) {
  ConsoleSink sink{piece.text};
  sink.WideText(begin, end);
  piece.units += sink.units;
}

void Compile(const wchar_t* format, CompiledFormat& compiled) {
  compiled.source = format;
  compiled.pieces.clear();
  compiled.pieces.emplace_back();
  for (const wchar_t* p = format; *p != 0;) {
    if (*p != '%') {
      const wchar_t* run = p;
      while (*p != 0 && *p != '%') ++p;
      AppendConsoleText(compiled.pieces.back(), run, p);
      continue;
    }
    const wchar_t* start = p++;
    const ParsedDirective parsed = ParseDirective(p);
    if (Classify(parsed.conv) != Conversion::kUnknown) {
      compiled.pieces.push_back({CompiledPiece::Kind::kConversion, parsed, {}, 0});
      ++p;
    } else {
      // Printed as written, as Format does; a '*' in it still takes its argument.
      if (parsed.widthFromArgs || parsed.precisionFromArgs) {
        compiled.pieces.push_back({CompiledPiece::Kind::kUnknown, parsed, {}, 0});
      }
      AppendConsoleText(compiled.pieces.back(), start, p);
    }
  }
}

// True when format still reads as compiled.source; stops at the first difference, so it never
// reads past the end of a shorter text.
bool SameText(const std::wstring& source, const wchar_t* format) {
  const wchar_t* kept = source.c_str();
  for (;; ++kept, ++format) {
    if (*kept != *format) return false;
    if (*kept == 0) return true;
  }
}

}  // namespace

// Open addressing over format addresses; a format is recompiled when the text at its address
// has changed, and the whole table is dropped on the rare run that fills it.
struct ConsoleFormatter::Cache {
  static constexpr std::size_t kSlots = 256;
  struct Slot {
    const wchar_t* key = nullptr;
    std::unique_ptr<CompiledFormat> compiled;
  };
  Slot slots[kSlots];
  std::size_t used = 0;

  static std::size_t Home(const wchar_t* key) {
    const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(key));
    return static_cast<std::size_t>((bits * 0x9E3779B97F4A7C15u) >> 56);
  }

  const CompiledFormat& Find(const wchar_t* format) {
    std::size_t i = Home(format);
    for (; slots[i].key != nullptr; i = (i + 1) % kSlots) {
      if (slots[i].key != format) continue;
      CompiledFormat& compiled = *slots[i].compiled;
      if (!SameText(compiled.source, format)) Compile(format, compiled);
      return compiled;
    }
    if (used + 1 > kSlots * 3 / 4) {
      for (Slot& slot : slots) slot = Slot{};
      used = 0;
      i = Home(format);
    }
    Slot& slot = slots[i];
    slot.key = format;
    slot.compiled = std::make_unique<CompiledFormat>();
    Compile(format, *slot.compiled);
    ++used;
    return *slot.compiled;
  }
};

ConsoleFormatter::ConsoleFormatter() : cache_(std::make_unique<Cache>()) {}
ConsoleFormatter::~ConsoleFormatter() = default;

std::string_view ConsoleFormatter::Format(const wchar_t* format, va_list ap, std::size_t* units) {
  // One huge text should not pin its memory for the rest of the run.
  constexpr std::size_t kKeptCapacity = std::size_t{1} << 20;
  if (out_.capacity() > kKeptCapacity) std::string().swap(out_);
  out_.clear();
  ConsoleSink sink{out_};
  if (format != nullptr) {
    const CompiledFormat& compiled = cache_->Find(format);
    Args args;
    va_copy(args.ap, ap);
    for (const CompiledPiece& piece : compiled.pieces) {
      if (piece.kind != CompiledPiece::Kind::kText) {
        const Directive directive = Resolve(piece.parsed, args);
        if (piece.kind == CompiledPiece::Kind::kConversion) {
          Convert<wchar_t>(sink, directive, piece.parsed.length, piece.parsed.conv, args);
        }
      }
      if (!piece.text.empty()) {
        out_.append(piece.text);
        sink.units += piece.units;
      }
    }
    va_end(args.ap);
  }
  *units = sink.units;
  return out_;
}

std::size_t AppendFormatConsole(std::string& out, const wchar_t* format, va_list args) {
  ConsoleSink sink{out};
  Format(sink, format, args);
  return sink.units;
}

void AppendFormatUtf8(std::string& out, const wchar_t* format, va_list args) {
  Utf8Sink sink{out};
  Format(sink, format, args);
}

void AppendFormatWide(std::wstring& out, const wchar_t* format, va_list args) {
  WideSink sink{out};
  Format(sink, format, args);
}

void AppendFormatNarrow(std::string& out, const char* format, va_list args) {
  Utf8Sink sink{out};
  Format(sink, format, args);
}

void AppendFormatNarrowConsole(std::string& out, const char* format, va_list args) {
  ConsoleSink sink{out};
  Format(sink, format, args);
}

std::string WideToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  const wchar_t* end = text.data() + text.size();
  for (const wchar_t* p = text.data(); p != end;) AppendUtf8(out, NextWide(p, end));
  return out;
}

std::wstring Utf8ToWide(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  WideSink sink{out};
  sink.Narrow(text);
  return out;
}

}  // namespace nw
