# SPDX-License-Identifier: MIT
list(APPEND kxio_sources
  geometry/CoordConverter3D.cpp
  geometry/GridProjection.cpp
  geometry/LineCache.cpp
  geometry/Tilt.cpp)
