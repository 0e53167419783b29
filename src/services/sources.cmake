# SPDX-License-Identifier: MIT
list(APPEND kxio_sources
  services/FileSets.cpp
  services/QSNFileRecovery.cpp
  services/QSNInfo.cpp
  services/ThumbnailEdit.cpp
  services/SpeckleByte.cpp
  services/TagSearch.cpp)
