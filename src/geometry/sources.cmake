# SPDX-License-Identifier: MIT
list(APPEND kxio_sources geometry/Tilt.cpp)
