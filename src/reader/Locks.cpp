// SPDX-License-Identifier: MIT
#include "reader/Locks.h"

namespace kxio {

std::mutex& FileAccessLock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}

std::mutex& BoundingBoxLock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}

}  // namespace kxio
