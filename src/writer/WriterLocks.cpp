// SPDX-License-Identifier: MIT
#include "writer/WriterLocks.h"

namespace kxio {

// Left to the end of the process on purpose: a destroyed lock could still have a user.
std::mutex& StreamLock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}

std::mutex& LimitsLock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}

std::mutex& PreviewLock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}

std::mutex& CodecLock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}

std::mutex& WrittenPatchesLock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}

}  // namespace kxio
