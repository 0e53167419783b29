// SPDX-License-Identifier: MIT
#include "kxbase/IInFileStream.h"
#include "kxbase/IOutFileStream.h"

namespace kxbase {

IInFileStream::~IInFileStream() = default;
std::wstring IInFileStream::GetName() const {
    return {};
}

IOutFileStream::~IOutFileStream() = default;
std::wstring IOutFileStream::GetName() const {
    return {};
}

}  // namespace kxbase
