#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QVector>

#include <memory>
#include <sys/stat.h>

/// What tests of the service for all users share: a system with the users alice and bob, in a name
/// space of the test's own.
namespace private_system {

constexpr int kPatienceMs = 30000;
constexpr uid_t kAlice = 4001;
constexpr uid_t kBob = 4002;

const QString kSocket = QStringLiteral("/run/morvane/morvane-vault-v1");
const QString kList = QStringLiteral("/etc/ld.so.preload");
const QString kLibrary = QStringLiteral("/run/lib/libmorvane-guard.so");
const QString kState = QStringLiteral("/run/state");

QByteArray contentOf(const QString &path);
bool writeFile(const QString &path, const QByteArray &bytes, mode_t mode = 0644);
/// True if the shell's command ends with 0.
bool run(const QString &command, uid_t uid = 0);
QByteArray outputOf(const QString &command);
QJsonObject ask(const char *method, const QJsonObject &params = QJsonObject());
QJsonObject login(const char *user, const char *password);
/// What the service answers to that user, over one connection; errors with their code.
QVector<QJsonObject> askAs(uid_t uid, const QJsonArray &requests);
bool isTrue(const QJsonObject &answer, const char *key);
/// The main() of such a test.
int execute(int argc, char *argv[], QObject *test);

/// Slots that begin and end each test function, and the service. Base of the tests.
class Test : public QObject
{
    Q_OBJECT

protected:
    bool start();
    /// Another run of the program, to its end.
    bool command(const QString &option);

    std::unique_ptr<QProcess> m_service;

private slots:
    void initTestCase();
    void init();
    void cleanup();
};

} // namespace private_system
