// SPDX-License-Identifier: MIT
#include "Panorama.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "ColorMap.h"
#include "ComponentNames.h"
#include "Errors.h"
#include "LayerSampler.h"
#include "Units.h"
#include "ValuePainting.h"

namespace qsn {

namespace {

template <class T>
Values ToValues(const std::vector<T>& cells, const std::vector<uint8_t>& visible, double factor) {
    Values values(cells.size(), std::numeric_limits<double>::quiet_NaN());
    for (size_t i = 0; i < cells.size(); ++i) {
        if (visible[i] != 0) values[i] = factor * static_cast<double>(cells[i]);
    }
    return values;
}

struct ScaledComponent {
    kxbase::ComponentType component;
    double factor;  ///< from the file's unit to the title's
    const char* title;
};

constexpr ScaledComponent kScaledComponents[] = {
    {kxbase::Range, kMetresPerUnit, "range in m"},
    {kxbase::VerticalAngle, kDegreesPerRadian, "from the zenith in deg"},
    {kxbase::HorizontalAngle, kDegreesPerRadian, "horizontal angle in deg"},
};

/// Draws into the pixels of `size` at the upper left of its picture.
class Painter {
public:
    Painter(const kxio::ScanAccess& access, const PanoramaRequest& request, PictureSize size,
            Panorama& result)
        : m_access(access), m_request(request), m_size(size), m_result(result) {}

    void PaintScaled(const ScaledComponent& scaled) {
        const std::vector<float> cells = Sample<float>(scaled.component);
        const std::vector<uint8_t> visible = scaled.component == kxbase::Range ? Returns(cells) : Visible();
        const Values values = ToValues(cells, visible, scaled.factor);
        const ValueSpan span = MiddleSpan(values);
        PaintValues(m_result.picture, m_size.width, m_size.height, values,
                    [&](double v) { return ScaleColor(ShareOf(v, span)); });
        const auto [least, greatest] = Extremes(values);
        DrawLegend(m_result.picture,
                   {span.low, span.high, scaled.title, least<span.low, greatest> span.high});
    }

    template <class T>
    void PaintIntensity() {
        const std::vector<T> cells = Sample<T>(m_request.component);
        const Values values = ToValues(cells, Visible(), 1.0);
        const ValueSpan span = MiddleSpan(values);
        PaintValues(m_result.picture, m_size.width, m_size.height, values,
                    [&](double v) { return Grey(ShareOf(v, span)); });
    }

    void PaintColor() {
        const std::vector<kxio::Rgb8> cells = Sample<kxio::Rgb8>(m_request.component);
        const std::vector<uint8_t> visible = Visible();
        for (uint32_t y = 0; y < m_size.height; ++y) {
            for (uint32_t x = 0; x < m_size.width; ++x) {
                const size_t i = size_t{y} * m_size.width + x;
                if (visible[i] == 0) continue;
                m_result.picture.At(x, y) = {cells[i].red, cells[i].green, cells[i].blue, 255};
            }
        }
    }

private:
    template <class T>
    std::vector<T> Sample(kxbase::ComponentType component) {
        return SampleLayer<T>(m_access, component, m_size, m_request, m_result.gaps);
    }

    static std::vector<uint8_t> Returns(const std::vector<float>& ranges) {
        std::vector<uint8_t> visible(ranges.size());
        std::transform(ranges.begin(), ranges.end(), visible.begin(),
                       [](float range) { return static_cast<uint8_t>(range > 0); });
        return visible;
    }

    /// Where something came back; everywhere, when the file has no range.
    std::vector<uint8_t> Visible() {
        if (m_access.Has(kxbase::Range)) return Returns(Sample<float>(kxbase::Range));
        return std::vector<uint8_t>(size_t{m_size.width} * m_size.height, 1);
    }

    const kxio::ScanAccess& m_access;
    const PanoramaRequest& m_request;
    const PictureSize m_size;
    Panorama& m_result;
};

/// A legend needs some width of its own.
uint32_t LegendWidth(PictureSize panorama, PictureSize box) {
    return std::max(panorama.width, std::min(box.width, kLeastLegendWidth));
}

PictureSize FitAboveLegend(const kxbase::GridTopology& grid, PictureSize box, bool hasLegend) {
    if (!hasLegend) return FitPanorama(grid, box);
    const auto fit = [&](uint32_t legendHeight) {
        return FitPanorama(grid, {box.width, box.height > legendHeight ? box.height - legendHeight : 1});
    };
    // The legend of a narrower picture is lower, which leaves more for the picture.
    const PictureSize first = fit(LegendHeight(box.width));
    const PictureSize second = fit(LegendHeight(LegendWidth(first, box)));
    const bool fits = second.height + LegendHeight(LegendWidth(second, box)) <= box.height;
    return fits ? second : first;
}

}  // namespace

std::vector<PatchPixels> PatchesOfPicture(const kxbase::GridTopology& grid, PictureSize size) {
    std::vector<PatchPixels> patches;
    if (grid.patchWidth == 0 || grid.patchHeight == 0) return patches;
    for (uint32_t y = 0; y < size.height;) {
        PatchPixels patch;
        patch.patchRow = CellOfPixel(y, size.height, grid.rows) / grid.patchHeight;
        patch.firstY = y;
        patch.endY = EndPixel(patch.patchRow, grid.patchHeight, size.height, grid.rows);
        for (uint32_t x = 0; x < size.width;) {
            patch.patchColumn = CellOfPixel(x, size.width, grid.columns) / grid.patchWidth;
            patch.firstX = x;
            patch.endX = EndPixel(patch.patchColumn, grid.patchWidth, size.width, grid.columns);
            patches.push_back(patch);
            x = patch.endX;
        }
        y = patch.endY;
    }
    return patches;
}

Panorama DrawPanorama(const kxio::ScanAccess& access, const PanoramaRequest& request) {
    const auto scaled =
        std::find_if(std::begin(kScaledComponents), std::end(kScaledComponents),
                     [&](const ScaledComponent& s) { return s.component == request.component; });
    const bool hasLegend = scaled != std::end(kScaledComponents);

    const PictureSize size = FitAboveLegend(access.Grid(), request.box, hasLegend);
    const uint32_t width = hasLegend ? LegendWidth(size, request.box) : size.width;
    Panorama result{Picture(width, size.height + (hasLegend ? LegendHeight(width) : 0)), {}};
    Painter painter(access, request, size, result);
    switch (request.component) {
        case kxbase::Range:
        case kxbase::VerticalAngle:
        case kxbase::HorizontalAngle:
            painter.PaintScaled(*scaled);
            break;
        case kxbase::Luminance8:
            painter.PaintIntensity<uint8_t>();
            break;
        case kxbase::Luminance16:
            painter.PaintIntensity<uint16_t>();
            break;
        case kxbase::Color:
            painter.PaintColor();
            break;
        default:
            throw UsageError(
                fmt::format("component {} has no picture; expected range, vertical, horizontal, "
                            "intensity8, intensity16 or color",
                            ComponentShortName(request.component)));
    }
    return result;
}

}  // namespace qsn
