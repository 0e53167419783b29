// SPDX-License-Identifier: MIT
#include "format/Hash64.h"

#include <xxhash.h>

#include <new>

namespace kxio {

uint64_t Hash64(std::span<const unsigned char> bytes) {
    return XXH3_64bits(bytes.data(), bytes.size());
}

struct RunningHash64::State {
    struct Free {
        void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
    };
    std::unique_ptr<XXH3_state_t, Free> xxh{XXH3_createState()};
};

RunningHash64::RunningHash64() : m_state(std::make_unique<State>()) {
    if (!m_state->xxh) throw std::bad_alloc();
    XXH3_64bits_reset(m_state->xxh.get());
}
RunningHash64::~RunningHash64() = default;

void RunningHash64::Add(std::span<const unsigned char> bytes) {
    XXH3_64bits_update(m_state->xxh.get(), bytes.data(), bytes.size());
}

uint64_t RunningHash64::Get() const {
    return XXH3_64bits_digest(m_state->xxh.get());
}

}  // namespace kxio
