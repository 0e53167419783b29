# SPDX-License-Identifier: MIT
list(APPEND kxio_sources
  services/FileSets.cpp
  services/QSNInfo.cpp)
