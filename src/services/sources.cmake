# SPDX-License-Identifier: MIT
list(APPEND kxio_sources
  services/AngleFit.cpp
  services/FileSets.cpp
  services/FileWindow.cpp
  services/GridDecision.cpp
  services/QSNFileRecovery.cpp
  services/QSNInfo.cpp
  services/RecordSurvey.cpp
  services/RecoverToFile.cpp
  services/SalvagedProperties.cpp
  services/ScanRebuild.cpp
  services/ScanRebuildWriting.cpp
  services/SpeckleByte.cpp
  services/StoredChunkCodec.cpp
  services/TableEvidence.cpp
  services/TagSearch.cpp
  services/ThumbnailEdit.cpp)
