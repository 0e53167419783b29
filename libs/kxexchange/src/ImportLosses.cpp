// SPDX-License-Identifier: MIT
#include "ImportLosses.h"

#include <cmath>

#include "QsnSource.h"
#include "TextFormat.h"

namespace kxexchange {

namespace {

std::string Rounded(double value) {
    const double digits = std::pow(10.0, 2 - std::ceil(std::log10(std::max(value, 1e-300))));
    return ShortestText(std::ceil(value * digits) / digits);
}

void JudgeCoordinates(const ImportFacts& facts, LossReport& losses) {
    const StoragePrecision& precision = facts.report.precision;
    const double across = facts.options.anglePrecision;
    const double bound = PositionBound(facts.report.greatestRange, precision) + across * 1e-3;
    losses.Add({"coordinates",
                Fate::Converted,
                "range in steps of " + ShortestText(precision.rangeScale) + " mm, angles of " +
                    ShortestText(std::max(precision.verticalScale, precision.horizontalScale)) + " rad" +
                    (across > 0 ? ", moved by up to " + ShortestText(across) + " mm across the beam" : "") +
                    "; within " + Rounded(bound) + " m at " +
                    ShortestText(std::ceil(facts.report.greatestRange)) + " m",
                {}});
}

std::string InverseText(const IntensityMapping& mapping) {
    if (mapping.levels == 0)
        return "value = " + ShortestText(mapping.offset) + " + stored x " + ShortestText(mapping.scale);
    const std::string levels = std::to_string(mapping.levels);
    return "value = round(stored x " + levels + " / 65535) / " + levels;
}

void JudgeIntensity(const ImportFacts& facts, LossReport& losses) {
    if (!facts.description.intensity.present) return;
    if (!facts.options.intensity) {
        losses.Add({"intensity", Fate::Lost, "left out as asked for", {}});
        return;
    }
    const IntensityMapping& mapping = facts.report.intensity;
    switch (mapping.kind) {
        case IntensityMapping::Kind::None:
        case IntensityMapping::Kind::Integer:
            losses.Add({"intensity", Fate::Kept, {}, {}});
            break;
        case IntensityMapping::Kind::Unit:
        case IntensityMapping::Kind::Real:
            losses.Add({"intensity", Fate::Converted, "to 16 bits, within " + Rounded(mapping.Bound()),
                        InverseText(mapping)});
            break;
    }
    if (facts.survey.InvalidIntensities() != 0) {
        losses.Add({"invalid intensities",
                    Fate::Converted,
                    std::to_string(facts.survey.InvalidIntensities()) + " become 0",
                    {}});
    }
    if (facts.survey.EmptyCellsDiffer())
        losses.Add({"intensities of cells without a return", Fate::Lost, "they differ", {}});
}

void JudgeColor(const ImportFacts& facts, LossReport& losses) {
    if (!facts.description.color.present) return;
    if (!facts.options.color) {
        losses.Add({"colour", Fate::Lost, "left out as asked for", {}});
        return;
    }
    if (facts.options.colorCodec == Codec::Jpeg)
        losses.Add({"colour", Fate::Converted, "JPEG: colours change a little", {}});
    if (facts.survey.InvalidColors() != 0) {
        losses.Add({"invalid colours",
                    Fate::Converted,
                    std::to_string(facts.survey.InvalidColors()) + " are stored as they are",
                    {}});
    }
}

void JudgeImages(const ImportFacts& facts, LossReport& losses) {
    const size_t count = facts.description.images.size();
    if (count == 0) return;
    if (!facts.thumbnail) {
        losses.Add({"images", Fate::Lost, std::to_string(count) + ", none fit to be the thumbnail", {}});
    } else if (count == 1) {
        losses.Add({"images", Fate::Kept, {}, {}});
    } else {
        losses.Add(
            {"images",
             Fate::Lost,
             std::to_string(count - 1) + " of " + std::to_string(count) + "; one becomes the thumbnail",
             {}});
    }
}

}  // namespace

LossReport ImportLosses(const ImportFacts& facts) {
    LossReport losses = ForeseeLosses(facts.description, QsnSource::Capabilities());
    JudgeCoordinates(facts, losses);
    JudgeIntensity(facts, losses);
    JudgeColor(facts, losses);
    JudgeImages(facts, losses);
    if (facts.survey.Directions() != 0) {
        losses.Add({"directions of cells without a return",
                    Fate::Converted,
                    "in the steps of the angles; lengths become 1",
                    {}});
    }
    return losses;
}

}  // namespace kxexchange
