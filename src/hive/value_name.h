// The name of a registry value. A hive holds thousands of values and most of their names are
// short: up to kInlineLength characters are kept in the object itself, longer names on the
// heap, which saves an allocation (and its release) per value. It reads as a std::wstring_view
// and is made from any wide string.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace tw::hive {

class ValueName {
 public:
  static constexpr std::size_t kInlineLength = 56 / sizeof(wchar_t);

  ValueName() noexcept {}
  // Implicit on purpose: a value name is made from any wide string, as a std::wstring is.
  ValueName(std::wstring_view text) { Assign(text); }                          // NOLINT
  ValueName(const wchar_t* text) : ValueName(std::wstring_view(text)) {}       // NOLINT
  ValueName(const std::wstring& text) : ValueName(std::wstring_view(text)) {}  // NOLINT
  ValueName(const ValueName& other) : ValueName(other.view()) {}
  ValueName(ValueName&& other) noexcept { Take(other); }
  ~ValueName() { Release(); }

  ValueName& operator=(const ValueName& other) {
    if (this != &other) Assign(other.view());
    return *this;
  }
  ValueName& operator=(ValueName&& other) noexcept {
    if (this != &other) {
      Release();
      Take(other);
    }
    return *this;
  }

  operator std::wstring_view() const noexcept { return view(); }  // NOLINT: reads as a view
  std::wstring_view view() const noexcept { return {data(), size_}; }
  const wchar_t* data() const noexcept { return OnHeap() ? storage_.heap : storage_.chars; }
  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }

  // Makes the name `length` characters long and returns them for the caller to fill in; what
  // the name held before is lost.
  wchar_t* Overwrite(std::size_t length) {
    if (length > kInlineLength) {
      wchar_t* heap = new wchar_t[length];
      Release();
      storage_.heap = heap;
      size_ = length;
      return heap;
    }
    Release();
    size_ = length;
    return storage_.chars;
  }

  friend bool operator==(const ValueName& a, const ValueName& b) noexcept {
    return a.view() == b.view();
  }

 private:
  bool OnHeap() const noexcept { return size_ > kInlineLength; }

  void Release() noexcept {
    if (OnHeap()) delete[] storage_.heap;
    size_ = 0;
  }

  // Moves the characters of `other` into this empty name and leaves `other` empty. The storage
  // is copied whole, whichever member is in use: a fixed-size copy without a branch.
  void Take(ValueName& other) noexcept {
    storage_ = other.storage_;
    size_ = other.size_;
    other.size_ = 0;
  }

  // `text` may lie in this name's own characters: they are copied before those are released.
  void Assign(std::wstring_view text) {
    if (text.size() > kInlineLength) {
      wchar_t* heap = new wchar_t[text.size()];
      std::copy(text.begin(), text.end(), heap);
      Release();
      storage_.heap = heap;
      size_ = text.size();
      return;
    }
    wchar_t copy[kInlineLength];
    std::copy(text.begin(), text.end(), copy);
    std::copy_n(copy, text.size(), Overwrite(text.size()));
  }

  // The characters are in `chars` up to kInlineLength of them, else `heap` points to them.
  union Storage {
    wchar_t chars[kInlineLength];
    wchar_t* heap;
  };

  std::size_t size_ = 0;
  Storage storage_{};  // cleared, so that a move never copies indeterminate bytes
};

}  // namespace tw::hive
