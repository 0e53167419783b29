# SPDX-License-Identifier: MIT
list(APPEND kxio_sources
  format/ColorizationModeExtendedHeader.cpp
  format/CommentExtendedHeader.cpp
  format/ComponentHeader.cpp
  format/DataChunkHeader.cpp
  format/ERExtendedHeader.cpp
  format/ExtendedHeader.cpp
  format/HDRExtendedHeader.cpp
  format/HQExtendedHeader.cpp
  format/Hash64.cpp
  format/HeaderPieces.cpp
  format/HistogramHeader.cpp
  format/IntegrityExtendedHeader.cpp
  format/IntegrityTable.cpp
  format/Limits.cpp
  format/LongLookupTable.cpp
  format/LookupTableHeader.cpp
  format/MainFileHeader.cpp
  format/MinMaxHeader.cpp
  format/PendingEdit.cpp
  format/PreregistrationExtendedHeader.cpp
  format/ScanHeader.cpp
  format/ScanningModeExtendedHeader.cpp
  format/ThumbnailHeader.cpp
  format/UUIDExtendedHeader.cpp
  format/WarningExtendedHeader.cpp)
