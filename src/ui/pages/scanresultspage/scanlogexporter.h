#pragma once

#include "ui/common/utils/scanlog.h"

#include <QObject>

namespace scanresults {

/// Writes scan logs on a pool thread. A log that cannot be written whole leaves no file behind.
class ScanLogExporter : public QObject
{
    Q_OBJECT

public:
    explicit ScanLogExporter(QObject *parent);

    bool isBusy() const { return m_busy; }
    /// Ends in finished(); does nothing while busy.
    void write(const QString &directory, const ui::common::utils::ScanLog &log);

signals:
    /// An empty error means success.
    void finished(const QString &path, const QString &error);

private:
    bool m_busy = false;
};

} // namespace scanresults
