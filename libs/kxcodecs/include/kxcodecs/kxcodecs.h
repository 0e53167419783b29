// SPDX-License-Identifier: MIT
#pragma once

/// Everything of the codec library.

#include "kxcodecs/ChunkCodecFactory.h"
#include "kxcodecs/ChunkHeader.h"
#include "kxcodecs/ColorChunkCodec.h"
#include "kxcodecs/ElementOrder.h"
#include "kxcodecs/GridChunkCodec.h"
#include "kxcodecs/JPEG.h"
#include "kxcodecs/JPEGChunkCodec.h"
#include "kxcodecs/QKXChunkCodec.h"
#include "kxcodecs/Quantise.h"
#include "kxcodecs/SettleValues.h"
#include "kxcodecs/SnappyChunkCodec.h"
#include "kxcodecs/ZLibChunkCodec.h"
#include "kxcodecs/ZLibPieces.h"
#include "kxcodecs/ZstdChunkCodec.h"
