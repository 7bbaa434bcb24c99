#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

class QProcess;

namespace services::vaultd {

class UserVault;

/// Proves the hook: lets another program delete a file of the user's in a protected folder, as that
/// user, and looks for it in the user's vault. What it finds it takes out again; nothing of it
/// stays. One at a time.
class HookProbe : public QObject
{
    Q_OBJECT

public:
    using Done = std::function<void(bool isKept, const QString &error)>;

    HookProbe();
    ~HookProbe() override;

    /// `preload`: loaded into the program by its environment; empty: as every fresh program of the
    /// system. `done` is called once, later; never after destruction.
    void run(UserVault *vault, const QByteArray &preload, const Done &done);
    bool isRunning() const { return bool(m_done); }

    /// Names that probes use: no news for the user.
    static bool isProbe(const QString &fileName);

private:
    bool makeFile(QString *error);
    void removeFile();
    void startProgram(const QByteArray &preload);
    void onProgramEnded();
    void look();
    void finish(bool isKept, const QString &error);

    UserVault *m_vault = nullptr;
    Done m_done;
    QString m_folder;
    QString m_name;
    std::unique_ptr<QProcess> m_program;
    QTimer m_look;
    int m_looks = 0;
};

} // namespace services::vaultd
