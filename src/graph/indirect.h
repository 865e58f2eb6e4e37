#pragma once
// A nullable value held on the heap, for records that nest themselves (a group node holds nodes).
// Copies share storage; mutation copies first, so it behaves as a plain value. Compares deeply.
#include <memory>
#include <utility>

namespace ombrik {

template <class T>
class Indirect {
public:
  Indirect() = default;
  Indirect(T value) : p_(std::make_shared<T>(std::move(value))) {}

  explicit operator bool() const { return static_cast<bool>(p_); }
  const T& operator*() const { return *p_; }
  const T* operator->() const { return p_.get(); }
  T& mutate() {
    if (p_.use_count() > 1) p_ = std::make_shared<T>(*p_);
    return *p_;
  }
  void reset() { p_.reset(); }

  bool operator==(const Indirect& o) const {
    if (p_ == o.p_) return true;
    return p_ && o.p_ && *p_ == *o.p_;
  }

private:
  std::shared_ptr<T> p_;
};

}  // namespace ombrik
