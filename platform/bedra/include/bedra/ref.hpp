// br::Ref<T>: an owned reference to a Bedra object, for C++ programs.
//
//   auto name = br::Ref<const BRString>::adopt(BRStringCreateWithCString(nullptr, "reel", kBRStringEncodingUTF8));
//   br::Ref<const BRString> same = name;              // retains
//   return same.detach();                             // the caller now owns it
//
// br::Ref<const void> holds an object of any class.
#ifndef BEDRA_REF_HPP
#define BEDRA_REF_HPP

#include <bedra/runtime.h>

#include <type_traits>
#include <utility>

namespace br {

template <class T>
class Ref {
 public:
  Ref() = default;
  Ref(std::nullptr_t) {}
  Ref(const Ref& other) : object_(other.object_) { BRRetain(object_); }
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ~Ref() { BRRelease(object_); }
  Ref& operator=(Ref other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  // Takes over a reference that the caller owns, as Create and Copy functions return it.
  static Ref adopt(T* object) { return Ref(object); }
  // Adds a reference of its own to a borrowed object.
  static Ref retain(T* object) {
    BRRetain(object);
    return Ref(object);
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  std::add_lvalue_reference_t<T> operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }

  // Hands the reference out; this one is empty afterwards.
  [[nodiscard]] T* detach() { return std::exchange(object_, nullptr); }
  // Where a function writes an object that it hands to the caller: Create(..., ref.out()).
  T** out() {
    BRRelease(std::exchange(object_, nullptr));
    return &object_;
  }

 private:
  explicit Ref(T* object) : object_(object) {}
  T* object_ = nullptr;
};

}  // namespace br

#endif
