#pragma once

// The object type behind Json: fields stay in the order they were inserted (so a file written
// back keeps its author's order), and, once an object has more than a handful of fields, a hash
// index finds a field in constant time. Without the index every insert searches all fields
// before it, and a file with 160,000 fields in one object takes tens of seconds to read.

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace nw::sim {

template <class Key, class T, class IgnoredLess = std::less<Key>,
          class Allocator = std::allocator<std::pair<const Key, T>>>
class IndexedOrderedMap : public std::vector<std::pair<const Key, T>, Allocator> {
  template <class K>
  using EnableForKey = std::enable_if_t<std::is_constructible_v<std::string_view, const K&>>;

 public:
  using key_type = Key;
  using mapped_type = T;
  using Container = std::vector<std::pair<const Key, T>, Allocator>;
  using iterator = typename Container::iterator;
  using const_iterator = typename Container::const_iterator;
  using size_type = typename Container::size_type;
  using value_type = typename Container::value_type;
  using difference_type = typename Container::difference_type;
  // Transparent, so that a lookup by a literal or a view builds no key.
  using key_compare = std::equal_to<>;

  /// Objects up to this many fields are searched in order: cheaper than an index for the
  /// small objects that make up most documents.
  static constexpr size_type kIndexAbove = 8;

  IndexedOrderedMap() noexcept(noexcept(Container())) = default;
  explicit IndexedOrderedMap(const Allocator& alloc) : Container(alloc) {}
  template <class It>
  IndexedOrderedMap(It first, It last, const Allocator& alloc = Allocator()) : Container(alloc) {
    insert(first, last);
  }
  IndexedOrderedMap(std::initializer_list<value_type> init, const Allocator& alloc = Allocator())
      : Container(alloc) {
    insert(init.begin(), init.end());
  }

  template <class K, class = EnableForKey<K>>
  std::pair<iterator, bool> emplace(K&& key, T&& value) {
    const size_type found = Locate(std::string_view(key));
    if (found != kNone) return {this->begin() + static_cast<difference_type>(found), false};
    Container::emplace_back(std::forward<K>(key), std::move(value));
    Indexed(this->size() - 1);
    return {std::prev(this->end()), true};
  }

  template <class K, class = EnableForKey<K>>
  T& operator[](K&& key) {
    return emplace(std::forward<K>(key), T{}).first->second;
  }
  template <class K, class = EnableForKey<K>>
  const T& operator[](const K& key) const {
    return at(key);
  }

  template <class K, class = EnableForKey<K>>
  T& at(const K& key) {
    const size_type found = Locate(std::string_view(key));
    if (found == kNone) throw std::out_of_range("key not found");
    return Container::operator[](found).second;
  }
  template <class K, class = EnableForKey<K>>
  const T& at(const K& key) const {
    const size_type found = Locate(std::string_view(key));
    if (found == kNone) throw std::out_of_range("key not found");
    return Container::operator[](found).second;
  }

  template <class K, class = EnableForKey<K>>
  size_type count(const K& key) const {
    return Locate(std::string_view(key)) == kNone ? 0 : 1;
  }
  template <class K, class = EnableForKey<K>>
  iterator find(const K& key) {
    const size_type found = Locate(std::string_view(key));
    return found == kNone ? this->end() : this->begin() + static_cast<difference_type>(found);
  }
  template <class K, class = EnableForKey<K>>
  const_iterator find(const K& key) const {
    const size_type found = Locate(std::string_view(key));
    return found == kNone ? this->end() : this->begin() + static_cast<difference_type>(found);
  }

  template <class K, class = EnableForKey<K>>
  size_type erase(const K& key) {
    const size_type found = Locate(std::string_view(key));
    if (found == kNone) return 0;
    const auto first = this->begin() + static_cast<difference_type>(found);
    erase(first, std::next(first));
    return 1;
  }
  iterator erase(iterator pos) { return erase(pos, std::next(pos)); }
  iterator erase(iterator first, iterator last) {
    const difference_type removed = std::distance(first, last);
    const difference_type offset = std::distance(this->begin(), first);
    if (removed == 0) return first;
    // Keys are const, so the fields after the gap are rebuilt in place rather than assigned.
    for (auto it = first; std::next(it, removed) != this->end(); ++it) {
      it->~value_type();
      new (&*it) value_type(std::move(*std::next(it, removed)));
    }
    for (difference_type i = 0; i < removed; ++i) Container::pop_back();
    // Positions after the gap have moved: the index is built again (erasing is rare).
    Reindex();
    return this->begin() + offset;
  }

  std::pair<iterator, bool> insert(value_type&& value) {
    return emplace(value.first, std::move(value.second));
  }
  std::pair<iterator, bool> insert(const value_type& value) {
    const size_type found = Locate(std::string_view(value.first));
    if (found != kNone) return {this->begin() + static_cast<difference_type>(found), false};
    Container::push_back(value);
    Indexed(this->size() - 1);
    return {std::prev(this->end()), true};
  }
  template <
      class InputIt,
      class = std::enable_if_t<std::is_convertible_v<
          typename std::iterator_traits<InputIt>::iterator_category, std::input_iterator_tag>>>
  void insert(InputIt first, InputIt last) {
    for (auto it = first; it != last; ++it) insert(*it);
  }

  void clear() noexcept {
    Container::clear();
    slots_.clear();
  }
  void swap(IndexedOrderedMap& other) noexcept {
    Container::swap(other);
    slots_.swap(other.slots_);
  }

  // The vector's own ways of adding and removing elements would bypass the index.
  void push_back(const value_type&) = delete;
  void pop_back() = delete;
  void resize(size_type) = delete;
  void assign(size_type, const value_type&) = delete;
  template <class... Args>
  void emplace_back(Args&&...) = delete;

 private:
  static constexpr size_type kNone = static_cast<size_type>(-1);
  // A slot holds a field's position plus one; 0 marks an empty slot.
  using Slot = uint32_t;

  static size_t Hash(std::string_view key) { return std::hash<std::string_view>()(key); }

  size_type Locate(std::string_view key) const {
    if (slots_.empty()) {
      for (size_type i = 0; i < this->size(); ++i) {
        if (std::string_view(Container::operator[](i).first) == key) return i;
      }
      return kNone;
    }
    const size_t mask = slots_.size() - 1;
    for (size_t i = Hash(key) & mask;; i = (i + 1) & mask) {
      const Slot slot = slots_[i];
      if (slot == 0) return kNone;
      if (std::string_view(Container::operator[](slot - 1).first) == key) return slot - 1;
    }
  }

  void Place(size_type position) {
    const size_t mask = slots_.size() - 1;
    size_t i = Hash(std::string_view(Container::operator[](position).first)) & mask;
    while (slots_[i] != 0) i = (i + 1) & mask;
    slots_[i] = static_cast<Slot>(position + 1);
  }

  /// Records the field just appended at position, building or growing the index as the object
  /// grows past kIndexAbove fields; the table is kept at most half full.
  void Indexed(size_type position) {
    if (this->size() <= kIndexAbove) return;
    if (slots_.empty() || this->size() * 2 > slots_.size()) {
      Reindex();
      return;
    }
    Place(position);
  }

  void Reindex() {
    slots_.clear();
    if (this->size() <= kIndexAbove) return;
    if (this->size() >= static_cast<size_type>(UINT32_MAX)) throw std::bad_alloc();
    size_t capacity = 32;
    while (capacity < this->size() * 4) capacity *= 2;
    slots_.assign(capacity, 0);
    for (size_type i = 0; i < this->size(); ++i) Place(i);
  }

  std::vector<Slot> slots_;
};

}  // namespace nw::sim
