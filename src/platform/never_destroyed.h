// Storage for a process-wide object that is built on first use and never
// destroyed: detached workers may still use it while the process exits and
// runs its static destructors. It lives in static storage, so building it
// allocates nothing either.
#pragma once

#include <new>

namespace scopemount::platform {

template <typename T>
class NeverDestroyed {
 public:
  NeverDestroyed() { new (storage_) T(); }
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;
  T& get() { return *std::launder(reinterpret_cast<T*>(storage_)); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace scopemount::platform
