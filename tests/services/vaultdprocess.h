#pragma once

#include "support/serviceclient.h"
#include "support/temptree.h"

#include <QHash>
#include <QProcess>

#include <memory>

/// The vault service as another process, on a vault in a tree of its own. GUI-less tests only.
class VaultdProcess
{
public:
    using Answer = testsupport::ServiceClient::Answer;
    /// Variables by name; with any, the program that obeys them runs (see faultycalls.cpp).
    using Faults = QHash<QString, QString>;

    /// A fresh tree with "home" for the vault, "state" and "passwords"; nothing runs.
    VaultdProcess();
    ~VaultdProcess() { stop(); }

    /// Starts it anew. False if it does not come up, or dies at once of its faults.
    bool start(const Faults &faults = Faults());
    /// By the command that the program has for it.
    bool setPassword(const char *user, const QByteArray &password);
    /// Whether the service lets the user in.
    bool enter(const char *user, const char *password);
    /// Shows the service who asks, for what it does only then.
    bool authenticate();
    /// Kills it.
    void stop();
    QStringList arguments() const;
    /// The ids that the command prints; empty if it fails.
    QStringList protect(const QStringList &paths, const Faults &faults = Faults());
    /// `method` without "vault.".
    Answer ask(const char *method, const QJsonObject &params = QJsonObject());
    QJsonArray list(const char *params = "{}");
    bool waitForEvent(const char *name, const QJsonObject &data);
    int eventCount(const char *name) const;

    TempTree tree;
    QStringList extraArguments;

private:
    std::unique_ptr<QProcess> m_process;
    std::unique_ptr<testsupport::ServiceClient> m_client;
};

QJsonObject json(const QByteArray &utf8);
QByteArray contentOf(const QString &path);
