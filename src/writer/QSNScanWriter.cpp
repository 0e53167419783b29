// SPDX-License-Identifier: MIT
#include "kxio/QSNScanWriter.h"

#include "writer/QSNScanWriterImpl.h"

namespace kxio {

QSNScanWriter::QSNScanWriter() : m_impl(std::make_shared<QSNScanWriterImpl>()) {}
QSNScanWriter::QSNScanWriter(const QSNScanWriter&) = default;
QSNScanWriter& QSNScanWriter::operator=(const QSNScanWriter&) = default;
QSNScanWriter::~QSNScanWriter() = default;

void QSNScanWriter::CreateNew(const std::wstring& path, const kxbase::GridTopology& topology) {
    m_impl->CreateNew(path, topology, TopologyMode::Grid);
}
void QSNScanWriter::CreateNew(kxbase::IOutFileStream* stream, const kxbase::GridTopology& topology) {
    m_impl->CreateNew(stream, topology, TopologyMode::Grid);
}
void QSNScanWriter::CreateNew(const std::wstring& path, const CylindricalTopology& topology) {
    m_impl->CreateNew(path, QSNScanWriterImpl::ToGrid(topology), TopologyMode::Cylindrical);
}
void QSNScanWriter::CreateNew(kxbase::IOutFileStream* stream, const CylindricalTopology& topology) {
    m_impl->CreateNew(stream, QSNScanWriterImpl::ToGrid(topology), TopologyMode::Cylindrical);
}
void QSNScanWriter::CreateNew(const std::wstring& path) {
    m_impl->CreateNew(path, QSNScanWriterImpl::NoGrid(), TopologyMode::None);
}
void QSNScanWriter::CreateNew(kxbase::IOutFileStream* stream) {
    m_impl->CreateNew(stream, QSNScanWriterImpl::NoGrid(), TopologyMode::None);
}

void QSNScanWriter::SetSpeckleFilteringNeeded(bool needed) {
    m_impl->Properties().speckleCorrectionNeeded = needed;
}
void QSNScanWriter::SetHasBeenSpatiallySampledToDistance(float distance) {
    m_impl->Properties().spatialSamplingDistance = distance;
}
void QSNScanWriter::SetPointcount(uint64_t count) {
    m_impl->SetPointcount(count);
}
void QSNScanWriter::SetCompressedThumbnail(const std::vector<unsigned char>& jpeg) {
    m_impl->SetCompressedThumbnail(jpeg);
}
void QSNScanWriter::SetRegistration(const kxbase::RegistrationInformation& registration) {
    m_impl->Properties().registration = registration;
}
void QSNScanWriter::SetCompressedPreview(void* data, uint64_t size, kxbase::ComponentType component) {
    const uint64_t bytes = data == nullptr ? 0 : size;
    m_impl->SetCompressedPreview({static_cast<const unsigned char*>(data), static_cast<size_t>(bytes)},
                                 component);
}
void QSNScanWriter::Set3DLock(bool locked) {
    m_impl->Properties().locked3D = locked;
}
void QSNScanWriter::SetProjectionMode(bool projected) {
    m_impl->Properties().projectionMode = projected;
}
void QSNScanWriter::SetFramingMode(ScanProperties::ScanFrameType mode) {
    m_impl->Properties().framingMode = mode;
}
void QSNScanWriter::SetParentUUID(const kxbase::UUID& parent) {
    m_impl->Properties().parentUUID = parent;
}
kxbase::UUID QSNScanWriter::GetScanUUID() const {
    return m_impl->Properties().scanUUID;
}
ScanProperties& QSNScanWriter::GetScanProperties() {
    return m_impl->Properties();
}
void QSNScanWriter::AddMessage(const std::wstring& text) {
    m_impl->AddMessage(text);
}
void QSNScanWriter::AddWarning(const std::wstring& text) {
    m_impl->AddWarning(text);
}
void QSNScanWriter::SetIntegrity(bool wanted) {
    m_impl->SetIntegrity(wanted);
}

void QSNScanWriter::DisableHistogramComputation(bool disable) {
    m_impl->EnableHistograms(!disable);
}

void QSNScanWriter::AddPatch(const std::vector<PatchDescriptor*>& descriptors, unsigned row,
                             unsigned column) {
    m_impl->AddPatch(descriptors, row, column);
}
void QSNScanWriter::AddPatch(const std::vector<PatchDescriptor*>& descriptors, unsigned index) {
    m_impl->AddPatch(descriptors, index);
}
std::map<std::string, uint64_t> QSNScanWriter::EndCreation() {
    return m_impl->EndCreation();
}

}  // namespace kxio
