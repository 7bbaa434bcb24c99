#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace diskanalyzer {

/// How far the scan is, and the buttons that start, stop and set it up. Object names:
/// AnalyzerStatusLabel, AnalyzerProgressBar, AnalyzerStartButton, AnalyzerStopButton,
/// AnalyzerSettingsButton.
class ScanBar : public QWidget
{
    Q_OBJECT

public:
    enum class State { Idle, Running, Stopping };

    explicit ScanBar(QWidget *parent = nullptr);

    void setState(State state);
    void setStatus(const QString &text);
    void setPercent(int percent);

signals:
    void startClicked();
    void stopClicked();
    void settingsClicked();

private:
    QLabel *m_status;
    QProgressBar *m_progress;
    QPushButton *m_start;
    QPushButton *m_stop;
    QPushButton *m_settings;
};

} // namespace diskanalyzer
