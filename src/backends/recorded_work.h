// Work that a backend may record once and replay.
//
// A caller hands Backend::issueRepeatable() a callback that issues backend
// operations, and a key naming everything those operations depend on. A
// backend that can record operations (the CUDA backend, as a CUDA graph) may
// replay the record for a later call with an equal key instead of running
// the callback again.
#pragma once

#include <array>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace vemo {

// A short list of words compared by value: pointers and sizes of recorded
// work.
class RepeatKey {
 public:
  static constexpr int kMaxWords = 32;

  RepeatKey& add(const void* p) { return push(static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p))); }
  RepeatKey& add(long long value) { return push(static_cast<std::uint64_t>(value)); }

  bool operator==(const RepeatKey& other) const {
    if (size_ != other.size_) return false;
    for (int k = 0; k < size_; ++k)
      if (words_[k] != other.words_[k]) return false;
    return true;
  }
  bool operator!=(const RepeatKey& other) const { return !(*this == other); }
  // Whether every word fitted: a key that overflowed never matches.
  bool complete() const { return !overflowed_; }

 private:
  RepeatKey& push(std::uint64_t word) {
    if (size_ == kMaxWords) {
      overflowed_ = true;
      return *this;
    }
    words_[size_++] = word;
    return *this;
  }

  std::array<std::uint64_t, kMaxWords> words_{};
  int size_ = 0;
  bool overflowed_ = false;
};

// A non-owning reference to a callable without arguments, valid for the
// call it is passed to.
class FunctionRef {
 public:
  template <class F, class = std::enable_if_t<!std::is_same<std::decay_t<F>, FunctionRef>::value>>
  FunctionRef(F&& f)  // NOLINT: implicit, like the lambda it wraps
      : object_(const_cast<void*>(static_cast<const void*>(&f))),
        call_([](void* o) { (*static_cast<std::remove_reference_t<F>*>(o))(); }) {}
  void operator()() const { call_(object_); }

 private:
  void* object_;
  void (*call_)(void*);
};

}  // namespace vemo
