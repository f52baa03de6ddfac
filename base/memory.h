// Owned memory: the one place that allocates.
#pragma once
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

// A zeroed array of `count` items, at least one; null when there is no memory.
template <typename T>
std::unique_ptr<T[]> make_owned(std::size_t count) {
  // nothrow: memory that runs out must end in a message, not in an exception.
  return std::unique_ptr<T[]>(new (std::nothrow) T[count > 0 ? count : 1]());
}

// A NUL-terminated copy of `length` bytes, one byte longer than `length`; null when out of memory.
inline std::unique_ptr<char[]> make_text(const void* bytes, std::size_t length) {
  std::unique_ptr<char[]> text = make_owned<char>(length + 1);
  if (text && length > 0) std::memcpy(text.get(), bytes, length);
  return text;
}

// A list node with its initial values; null when there is no memory.
template <typename Node>
std::unique_ptr<Node> make_node() {
  return std::unique_ptr<Node>(new (std::nothrow) Node());
}

// Makes room for one more item after the first `used` of `*array`, whose room is `*room` items.
// Doubles, so memory follows what arrives. Returns false, with nothing changed, when out of memory.
template <typename T>
bool make_room(std::unique_ptr<T[]>* array, std::size_t used, std::size_t* room) {
  if (used < *room) return true;
  const std::size_t wider = *room > 0 ? *room * 2 : 16;
  // Not zeroed: pages that no item reaches are never touched.
  std::unique_ptr<T[]> moved(new (std::nothrow) T[wider]);
  if (!moved) return false;
  for (std::size_t i = 0; i < used; i++) moved[i] = std::move((*array)[i]);
  *array = std::move(moved);
  *room = wider;
  return true;
}
