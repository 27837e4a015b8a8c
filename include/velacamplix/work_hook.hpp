#pragma once

#include <functional>

namespace pbamplix {

// What a call that can take long tells while it works: how much is done, and how much there is. It is called often, on
// the calling thread, outside parallel regions and critical sections, and must not use the object that is at work. What
// it throws ends the call and goes on to the caller.
using work_hook = std::function<void(unsigned long done, unsigned long all)>;

}  // namespace pbamplix
