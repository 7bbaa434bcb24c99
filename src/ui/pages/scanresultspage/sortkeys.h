#pragma once

#include "ui/common/utils/humansize.h"
#include "ui/common/utils/scanfilerules.h"

namespace scanresults {

// What the cells of three columns are compared by. They are values kept with the row and computed
// once, when it arrives: sorting 100,000 rows makes 1.7 million comparisons.

/// Column "大小": bytes of the text that is shown.
struct SizeTableWidgetItem
{
    qint64 bytes = 0;

    SizeTableWidgetItem() = default;
    explicit SizeTableWidgetItem(const QString &text)
        : bytes(ui::common::utils::parseHumanSizeToBytes(text))
    {}
    bool operator<(const SizeTableWidgetItem &other) const { return bytes < other.bytes; }
};

/// Column "删除时间": a text that is no time sorts as oldest.
struct DeletionTimeTableWidgetItem
{
    qint64 msSinceEpoch = 0;

    DeletionTimeTableWidgetItem() = default;
    explicit DeletionTimeTableWidgetItem(const QString &text)
        : msSinceEpoch(ui::common::utils::deletionTimeMs(text))
    {}
    bool operator<(const DeletionTimeTableWidgetItem &other) const
    {
        return msSinceEpoch < other.msSinceEpoch;
    }
};

/// Column "恢复几率": the score, not the words.
struct RecoverabilityTableWidgetItem
{
    int score = 0;

    RecoverabilityTableWidgetItem() = default;
    RecoverabilityTableWidgetItem(const ui::common::utils::ScanFile &file, const QString &label)
        : score(ui::common::utils::recoverabilityScore(file, label))
    {}
    bool operator<(const RecoverabilityTableWidgetItem &other) const { return score < other.score; }
};

} // namespace scanresults
