// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "kxio/VerifyScan.h"

namespace kxio {

/// Builds a finding piece by piece: `Error("chunk").At(92).Field("byte count").Says("...")`.
class FindingDraft {
public:
    FindingDraft(FindingSeverity severity, std::string record) {
        m_finding.severity = severity;
        m_finding.record = std::move(record);
    }
    FindingDraft& At(std::optional<uint64_t> offset) {
        m_finding.offset = offset;
        return *this;
    }
    FindingDraft& Field(std::string field) {
        m_finding.field = std::move(field);
        return *this;
    }
    FindingDraft& Of(kxbase::ComponentType component) {
        m_finding.component = component;
        return *this;
    }
    FindingDraft& Patch(uint32_t row, uint32_t column) {
        m_finding.patchRow = row;
        m_finding.patchColumn = column;
        return *this;
    }
    VerifyFinding Says(std::string text) {
        m_finding.text = std::move(text);
        return std::move(m_finding);
    }

private:
    VerifyFinding m_finding;
};

inline FindingDraft Error(std::string record) {
    return {FindingSeverity::Error, std::move(record)};
}
inline FindingDraft Warning(std::string record) {
    return {FindingSeverity::Warning, std::move(record)};
}
inline FindingDraft Note(std::string record) {
    return {FindingSeverity::Note, std::move(record)};
}

/// Puts findings into a report, up to the most that it keeps.
class FindingList {
public:
    FindingList(VerifyReport& report, uint64_t most) : m_report(report), m_most(most) {}

    void Add(VerifyFinding finding) {
        switch (finding.severity) {
            case FindingSeverity::Error:
                ++m_report.errors;
                break;
            case FindingSeverity::Warning:
                ++m_report.warnings;
                break;
            case FindingSeverity::Note:
                ++m_report.notes;
                break;
        }
        if (m_report.findings.size() < m_most) {
            m_report.findings.push_back(std::move(finding));
        } else {
            ++m_report.leftOut;
        }
    }
    void Add(std::vector<VerifyFinding>& findings) {
        for (VerifyFinding& finding : findings)
            Add(std::move(finding));
        findings.clear();
    }

private:
    VerifyReport& m_report;
    uint64_t m_most;
};

}  // namespace kxio
