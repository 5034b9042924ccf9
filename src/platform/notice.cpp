#include "platform/notice.h"

namespace scopemount::platform {

void Notice::Notify() {
  // Under the lock: a waiter between its test and its sleep holds it, so
  // the notification cannot fall into that gap.
  std::lock_guard lock(mutex_);
  changed_.notify_all();
}

}  // namespace scopemount::platform
