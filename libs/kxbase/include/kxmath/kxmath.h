// SPDX-License-Identifier: MIT
#pragma once

#include "kxmath/Frame.h"
#include "kxmath/Vector3.h"
