#include "base/bounded_string.h"

#include <gtest/gtest.h>

#include <string>

namespace nw {
namespace {

constexpr wchar_t kGuard = L'#';

struct Buffer {
  explicit Buffer(size_t capacity) : chars(capacity + 4, kGuard) {}
  std::wstring chars;  // four guard characters past the capacity
  wchar_t* data() { return chars.data(); }
  std::wstring text() const { return std::wstring(chars.c_str()); }
  bool guardsIntact(size_t capacity) const { return chars.substr(capacity) == L"####"; }
};

TEST(BoundedString, CopyFitsOrTruncatesTerminated) {
  struct {
    size_t capacity;
    const wchar_t* source;
    int32_t status;
    const wchar_t* result;
  } cases[] = {
      {6, L"abcde", 0, L"abcde"},
      {5, L"abcde", kStrSafeInsufficientBuffer, L"abcd"},
      {1, L"abcde", kStrSafeInsufficientBuffer, L""},
      {1, L"", 0, L""},
  };
  for (const auto& c : cases) {
    Buffer b(c.capacity);
    EXPECT_EQ(BoundedCopy(b.data(), c.capacity, c.source), c.status);
    EXPECT_EQ(b.text(), c.result);
    EXPECT_TRUE(b.guardsIntact(c.capacity));
  }
}

TEST(BoundedString, CapacityOutsideTheRangeTouchesNothing) {
  Buffer b(4);
  EXPECT_EQ(BoundedCopy(b.data(), 0, L"a"), kStrSafeInvalidParameter);
  EXPECT_EQ(BoundedCat(b.data(), 0, L"a"), kStrSafeInvalidParameter);
  EXPECT_EQ(BoundedPrintf(b.data(), 0, L"a"), kStrSafeInvalidParameter);
  EXPECT_EQ(BoundedCopy(b.data(), kStrSafeMaxChars + 1, L"a"), kStrSafeInvalidParameter);
  EXPECT_EQ(b.chars, std::wstring(8, kGuard));
}

TEST(BoundedString, CatAppendsOrTruncates) {
  struct {
    size_t capacity;
    const wchar_t* start;
    const wchar_t* add;
    int32_t status;
    const wchar_t* result;
  } cases[] = {
      {7, L"abc", L"def", 0, L"abcdef"},
      {6, L"abc", L"def", kStrSafeInsufficientBuffer, L"abcde"},
      {4, L"abc", L"", 0, L"abc"},
      {4, L"abc", L"d", kStrSafeInsufficientBuffer, L"abc"},
  };
  for (const auto& c : cases) {
    Buffer b(c.capacity);
    BoundedCopy(b.data(), c.capacity, c.start);
    EXPECT_EQ(BoundedCat(b.data(), c.capacity, c.add), c.status);
    EXPECT_EQ(b.text(), c.result);
    EXPECT_TRUE(b.guardsIntact(c.capacity));
  }
}

TEST(BoundedString, CatRefusesADestinationNotTerminatedWithinTheCapacity) {
  Buffer b(3);
  b.chars[0] = b.chars[1] = b.chars[2] = L'x';
  EXPECT_EQ(BoundedCat(b.data(), 3, L"y"), kStrSafeInvalidParameter);
  EXPECT_EQ(b.chars.substr(0, 3), L"xxx");
}

TEST(BoundedString, PrintfFormatsOrTruncates) {
  Buffer exact(10);
  EXPECT_EQ(BoundedPrintf(exact.data(), 10, L"%ls\\%ls", L"C:", L"a.dll"), 0);
  EXPECT_EQ(exact.text(), L"C:\\a.dll");
  Buffer small(6);
  EXPECT_EQ(BoundedPrintf(small.data(), 6, L"%ls\\%ls", L"C:", L"a.dll"),
            kStrSafeInsufficientBuffer);
  EXPECT_EQ(small.text(), L"C:\\a.");
  EXPECT_TRUE(small.guardsIntact(6));
}

TEST(BoundedString, LengthLooksNoFurtherThanTheBound) {
  size_t length = 99;
  EXPECT_TRUE(BoundedLength(L"abc", 4, &length));
  EXPECT_EQ(length, 3u);
  EXPECT_FALSE(BoundedLength(L"abc", 3, &length));
  EXPECT_FALSE(BoundedLength(nullptr, 3, &length));
}

}  // namespace
}  // namespace nw
