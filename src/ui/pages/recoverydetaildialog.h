#pragma once

#include "ui/common/framelessdialog.h"
#include "ui/pages/recoverydetaildialog/fileresult.h"

class QFormLayout;

/// The story of one recovered file: what became of it and the steps on the way.
class RecoveryDetailDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    /// `isRunning` tells whether the file's task goes on.
    RecoveryDetailDialog(const recoveryresult::FileResult &result, bool isRunning,
                         QWidget *parent = nullptr);

    /// Opens the dialog over `parent` and returns at once; it frees itself when it closes.
    static void open(const recoveryresult::FileResult &result, bool isRunning, QWidget *parent);

private:
    void buildHeading();
    void buildFacts(const recoveryresult::FileResult &result, bool isRunning);
    void buildTimeline(const QStringList &timeline);
    void addFact(QFormLayout *form, const QString &caption, const QString &value, const char *name);
};
