# SPDX-License-Identifier: MIT
list(APPEND kxio_sources
  writer/HistogramRecords.cpp
  writer/PackedHistogram.cpp
  writer/MultiLevelPatch.cpp
  writer/PatchDescriptor.cpp
  writer/PatchHistograms.cpp
  writer/PatchLimits.cpp
  writer/PreviewSampler.cpp
  writer/QSNScanWriter.cpp
  writer/QSNScanWriterImpl.cpp
  writer/QSNScanWriterImplChunks.cpp
  writer/QSNScanWriterImplIntake.cpp
  writer/QSNScanWriterImplIntegrity.cpp
  writer/QSNScanWriterImplPatches.cpp
  writer/QSNScanWriterImplTail.cpp
  writer/QSNScanWriterImplThumbnail.cpp
  writer/WriterLocks.cpp)
