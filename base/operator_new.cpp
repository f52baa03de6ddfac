// What the product would need of the C++ library's file, which would bring half of itself along.
// Not for the simulator and the tests, nor for sanitized builds: they have the library's own.
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>

// NOLINTBEGIN(cppcoreguidelines-no-malloc)
const std::nothrow_t std::nothrow{};

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

void operator delete[](void* memory) noexcept {
  std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

// NOLINTEND(cppcoreguidelines-no-malloc)
// An index past the end of a span or an array.
[[gnu::noinline, gnu::cold]] void std::__glibcxx_assert_fail(const char*, int, const char*,
                                                             const char*) noexcept {
  std::fputs("qarn: an index is past the end: this is a fault of qarn\n", stderr);
  std::abort();
}

void std::__throw_out_of_range_fmt(const char*, ...) {
  std::__glibcxx_assert_fail(nullptr, 0, nullptr, nullptr);
}
