// SPDX-License-Identifier: MIT
#include "kxbase/ComponentType.h"

namespace kxbase {

std::string ComponentToString(ComponentType component) {
    switch (component) {
        case Range:
            return "Range";
        case VerticalAngle:
            return "VerticalAngle";
        case HorizontalAngle:
            return "HorizontalAngle";
        case Luminance8:
            return "Luminance8";
        case Luminance16:
            return "Luminance16";
        case Color:
            return "Color";
        case Class:
            return "Class";
        case Segment:
            return "Segment";
        default:
            return "Component" + std::to_string(static_cast<uint32_t>(component));
    }
}

uint32_t ComponentElementBytes(ComponentType component) {
    switch (component) {
        case Range:
        case VerticalAngle:
        case HorizontalAngle:
        case Class:
            return 4;
        case Luminance8:
            return 1;
        case Luminance16:
            return 2;
        case Color:
            return 3;
        case Component7:
        case Component15:
        case Component16:
            return 16;
        case Component8:
        case Segment:
            return 8;
        case Component9:
        case Component14:
            return 12;
        case Component13:
            return 20;
        case Component17:
            return 24;
        default:
            return 0;
    }
}

}  // namespace kxbase
