#pragma once

#include "app/mainwindow.h"
#include "ui/pages/partitionselectpage.h"
#include "ui/pages/recoveryprogresspage.h"
#include "ui/pages/recoveryworkflowwindow.h"
#include "ui/pages/scanresultspage.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>

namespace support {

/// The real main window of the recovery environment on a service of the test, and what a user does
/// with it. Its link tries again after a moment instead of seconds.
class RecoveryWindow : public MainWindow
{
public:
    explicit RecoveryWindow(const QString &serviceName)
        : MainWindow(core::AppMode::livecd, nullptr, surroundings(serviceName))
    {
        findChild<QTimer *>(QStringLiteral("RecoveryReconnectTimer"))->setInterval(50);
        resize(1024, 700);
        show();
    }

    PartitionSelectPage *partitions() const { return findChild<PartitionSelectPage *>(); }
    static RecoveryWorkflowWindow *workflow()
    {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *window = qobject_cast<RecoveryWorkflowWindow *>(widget))
                return window;
        }
        return nullptr;
    }
    static ScanResultsPage *scan() { return workflow()->scanPage(); }
    static RecoveryProgressPage *recovery() { return workflow()->recoveryPage(); }

    bool showsSamples() const
    {
        return child<QWidget>(this, "SampleNotice")->isVisibleTo(partitions());
    }
    void pressStart() { click(child<QWidget>(partitions(), "PrimaryActionButton")); }
    static void press(const char *button) { click(child<QWidget>(workflow(), button)); }
    static bool isEnabled(const char *button)
    {
        return child<QWidget>(workflow(), button)->isEnabled();
    }
    static QString text(const char *label)
    {
        return child<QWidget>(workflow(), label)->property("text").toString();
    }
    static int rowCount()
    {
        return child<QAbstractItemView>(workflow(), "ScanResultsTable")->model()->rowCount();
    }
    /// Ticks with Space, as from the keyboard.
    static void tick(int row)
    {
        auto *table = child<QAbstractItemView>(workflow(), "ScanResultsTable");
        table->setCurrentIndex(table->model()->index(row, 1));
        QTest::keyClick(table, Qt::Key_Space);
    }
    static void setOutput(const QString &path)
    {
        child<QLineEdit>(workflow(), "OutputPathEdit")->setText(path);
    }

private:
    static MainWindowOptions surroundings(const QString &serviceName)
    {
        MainWindowOptions options;
        options.trayProbe = [] {
            return false;
        };
        options.recoveryService = serviceName;
        return options;
    }
    template <typename T>
    static T *child(const QWidget *parent, const char *name)
    {
        return parent->findChild<T *>(QLatin1String(name));
    }
    static void click(QWidget *widget) { QTest::mouseClick(widget, Qt::LeftButton); }
};

} // namespace support
