#pragma once

#include "ui/pages/diskanalyzerpage/filedeletion.h"

#include <QString>

namespace diskanalyzer {

/// What the user reads at the end of a deletion.
struct DeletionNotice
{
    enum Tone { Success, Warning, Error };
    Tone tone = Success;
    QString title;
    QString message;
};

/// Names the files that were left, each with its reason.
DeletionNotice noticeOf(const DeletionReport &report, bool asDuplicates);

} // namespace diskanalyzer
