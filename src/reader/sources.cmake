# SPDX-License-Identifier: MIT
list(APPEND kxio_sources
  reader/BoundingBoxes.cpp
  reader/ExtendedFrame.cpp
  reader/Locks.cpp
  reader/Patch3D.cpp
  reader/PatchDecoder.cpp
  reader/PatchTasks.cpp
  reader/PositionedInput.cpp
  reader/Prefetch.cpp
  reader/QSNScanReader.cpp
  reader/ReaderCodecs.cpp
  reader/ReaderDetail.cpp
  reader/ReaderFailSafe.cpp
  reader/ReaderIntegrity.cpp
  reader/ReaderLayer.cpp
  reader/ReaderOpening.cpp
  reader/ReaderPatches.cpp
  reader/ReaderPreviews.cpp
  reader/ReaderTail.cpp
  reader/RecordAt.cpp
  reader/ScanAccess.cpp
  reader/ScanAccessInspection.cpp
  reader/ScanningMode.cpp)
