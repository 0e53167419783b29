// SPDX-License-Identifier: MIT
#include "kxio/PatchDescriptor.h"

#include "kxio/EmptyPatchDescriptor.h"
#include "kxio/EncodedPatchDescriptor.h"
#include "kxio/FlatPatchDescriptor.h"
#include "kxio/PatchProcessor.h"

namespace kxio {

PatchProcessor::~PatchProcessor() = default;

PatchDescriptor::PatchDescriptor() : PatchDescriptor(kxbase::ComponentType{}, 0) {}
PatchDescriptor::PatchDescriptor(kxbase::ComponentType c, uint64_t n)
    : data(nullptr), pixelLength(n), size(0), component(c) {}
PatchDescriptor::PatchDescriptor(const PatchDescriptor&) = default;
PatchDescriptor& PatchDescriptor::operator=(const PatchDescriptor&) = default;
PatchDescriptor::~PatchDescriptor() = default;

FlatPatchDescriptor::FlatPatchDescriptor() : orientation(RowMajor), scale(1.0), codec(nullptr) {}
FlatPatchDescriptor::FlatPatchDescriptor(kxbase::ComponentType c, uint64_t pixelLengthIn,
                                         PreviewPatchOrientation orientationIn, double scaleIn,
                                         kxcodecs::QKXChunkCodec* codecIn)
    : PatchDescriptor(c, pixelLengthIn), orientation(orientationIn), scale(scaleIn), codec(codecIn) {}
FlatPatchDescriptor::FlatPatchDescriptor(const FlatPatchDescriptor&) = default;
FlatPatchDescriptor& FlatPatchDescriptor::operator=(const FlatPatchDescriptor&) = default;
FlatPatchDescriptor::~FlatPatchDescriptor() = default;

void FlatPatchDescriptor::Process(PatchProcessor* processor, unsigned row, unsigned column) {
    if (processor != nullptr) processor->ProcessFlat(this, row, column);
}

EncodedPatchDescriptor::EncodedPatchDescriptor() : EncodedPatchDescriptor(kxbase::ComponentType{}, 1) {}
EncodedPatchDescriptor::EncodedPatchDescriptor(kxbase::ComponentType c, uint64_t n)
    : PatchDescriptor(c, n), min(0), max(0) {}
EncodedPatchDescriptor::EncodedPatchDescriptor(const EncodedPatchDescriptor&) = default;
EncodedPatchDescriptor& EncodedPatchDescriptor::operator=(const EncodedPatchDescriptor&) = default;
EncodedPatchDescriptor::~EncodedPatchDescriptor() = default;

void EncodedPatchDescriptor::Process(PatchProcessor* processor, unsigned row, unsigned column) {
    if (processor != nullptr) processor->ProcessEncoded(this, row, column);
}

EmptyPatchDescriptor::EmptyPatchDescriptor() : EmptyPatchDescriptor(kxbase::ComponentType{}, 1) {}
EmptyPatchDescriptor::EmptyPatchDescriptor(kxbase::ComponentType c, uint64_t n)
    : PatchDescriptor(c, n), min(0), max(0) {}
EmptyPatchDescriptor::EmptyPatchDescriptor(const EmptyPatchDescriptor&) = default;
EmptyPatchDescriptor& EmptyPatchDescriptor::operator=(const EmptyPatchDescriptor&) = default;
EmptyPatchDescriptor::~EmptyPatchDescriptor() = default;

void EmptyPatchDescriptor::Process(PatchProcessor* processor, unsigned row, unsigned column) {
    if (processor != nullptr) processor->ProcessEmpty(this, row, column);
}

}  // namespace kxio
