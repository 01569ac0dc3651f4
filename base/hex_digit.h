#pragma once

// The one reading of a hexadecimal digit that every parser of the program and the simulator
// shares: ASCII digits and letters only, never what a locale might add.

namespace nw {

/// 0 to 15 for '0'-'9', 'a'-'f' and 'A'-'F'; -1 for any other character.
template <class Char>
constexpr int HexDigitValue(Char c) {
  if (c >= Char('0') && c <= Char('9')) return static_cast<int>(c - Char('0'));
  if (c >= Char('a') && c <= Char('f')) return static_cast<int>(c - Char('a')) + 10;
  if (c >= Char('A') && c <= Char('F')) return static_cast<int>(c - Char('A')) + 10;
  return -1;
}

}  // namespace nw
