#include "vaultd/deploy/protection.h"

#include "common/jsonfile.h"
#include "vaultd/deploy/hookfile.h"
#include "vaultd/failure.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>

namespace services::vaultd {

namespace {

constexpr qint64 kProofCountsMs = 60 * 60 * 1000;
constexpr qint64 kFailureCountsMs = 5000; ///< A page that asks often must not probe without end.
constexpr int kCheckPatienceMs = 10000;

const QString kUnproven = QStringLiteral("/deploying.json");
const QString kDeployment = QStringLiteral("/deployment.json");
const QString kFormerList = QStringLiteral("/ld.so.preload.before");
const QString kBoot = QStringLiteral("boot");
const QString kTicks = QStringLiteral("ticks");

bool keepCopy(const QString &path, const QByteArray &bytes, QString *error)
{
    QSaveFile file(path);
    return (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() &&
            file.commit()) ||
           fail(error, QStringLiteral("无法写入 %1：%2").arg(path, file.errorString()));
}

} // namespace

QString HookFacts::deployMode(bool isEnabled) const
{
    if (!isEnabled)
        return QString();
    if (!isLibraryThere || !isActive)
        return QStringLiteral("degraded");
    return needsReboot ? QStringLiteral("pending_reboot") : QStringLiteral("global");
}

Protection::Protection(const Options &options, const Hook &hook, VaultUsers &users)
    : m_options(options)
    , m_hook(hook)
    , m_users(users)
    , m_library(libraryOf(options.entry))
    , m_list(options.preloadList)
{}

void Protection::start()
{
    if (!isDeployable())
        return;
    QString error;
    const QString unproven = m_options.stateDir + kUnproven;
    const bool isUnused = m_list.contains(m_options.entry) && !m_users.isAnyEnabled();
    if ((isUnused || QFile::exists(unproven)) && !m_list.remove(m_options.entry, &error))
        qWarning() << "[Protection]" << error;
    QFile::remove(unproven);
}

void Protection::apply(UserVault *vault)
{
    QString error;
    if (isDeployable() && vault->settings().isEnabled() && !m_hook.open(*vault, &error))
        qWarning() << "[Protection] not protected: user" << vault->user().uid << error;
}

void Protection::enqueue(const Step &step)
{
    m_steps.enqueue(step);
    if (!m_isBusy)
        endStep();
}

/// The next one begins from the event loop: a step may end inside the call that began it.
void Protection::endStep()
{
    m_isBusy = !m_steps.isEmpty();
    if (m_isBusy)
        QTimer::singleShot(0, this, m_steps.dequeue());
}

void Protection::enable(UserVault *vault, const Done &done)
{
    if (!isDeployable()) {
        QString error;
        const bool isKept = vault->setEnabled(true, &error);
        done(isKept, error);
        return;
    }
    enqueue([this, vault, done] {
        prove(vault, [this, done](bool isDone, const QString &error) {
            done(isDone, error);
            endStep();
        });
    });
}

/// First with a program that is given the library: nothing of the system is touched until then.
void Protection::prove(UserVault *vault, const Done &done)
{
    QString error;
    if (!checkLibrary(m_library, &error) || !provideFor32Bit(m_options.entry, &error)) {
        giveUp(vault, error, done);
        return;
    }
    if (!m_hook.open(*vault, &error)) {
        giveUp(vault, error, done);
        return;
    }
    m_probe.run(vault, m_options.entry, [this, vault, done](bool isKept, const QString &why) {
        if (isKept)
            deploy(vault, done);
        else
            giveUp(vault, why, done);
    });
}

bool Protection::list(PreloadList::Content *former, bool *isNew, QString *error)
{
    if (!m_list.read(former, error))
        return false;
    *isNew = !listsEntry(former->bytes, m_options.entry);
    return !*isNew || (keepCopy(m_options.stateDir + kFormerList, former->bytes, error) &&
                       writeJson(m_options.stateDir + kUnproven, {{kBoot, true}}, error) &&
                       m_list.add(m_options.entry, error));
}

void Protection::deploy(UserVault *vault, const Done &done)
{
    PreloadList::Content former;
    bool isNew = false;
    QString error;
    if (!list(&former, &isNew, &error)) {
        QFile::remove(m_options.stateDir + kUnproven);
        giveUp(vault, error, done);
        return;
    }
    const Moment moment = Moment::now();
    m_probe.run(vault, QByteArray(),
                [this, vault, former, isNew, moment, done](bool isKept, const QString &why) {
                    QString trouble = why;
                    if (isKept && confirm(vault, isNew, moment, &trouble)) {
                        done(true, QString());
                        return;
                    }
                    takeBack(former, isNew);
                    giveUp(vault, trouble, done);
                });
}

bool Protection::confirm(UserVault *vault, bool isNew, const Moment &moment, QString *error)
{
    const QJsonObject deployed{{kBoot, QString::fromLatin1(moment.boot)},
                               {kTicks, double(moment.ticks)}};
    if ((isNew && !writeJson(m_options.stateDir + kDeployment, deployed, error)) ||
        !vault->setEnabled(true, error))
        return false;
    Proof &proof = m_proofs[vault->user().uid];
    proof.isKept = true;
    proof.age.start();
    QFile::remove(m_options.stateDir + kUnproven);
    return true;
}

void Protection::takeBack(const PreloadList::Content &former, bool isNew)
{
    QString error;
    if (isNew && !m_list.restore(former, &error))
        qCritical() << "[Protection]" << error;
    else
        QFile::remove(m_options.stateDir + kUnproven);
}

void Protection::giveUp(UserVault *vault, const QString &why, const Done &done)
{
    if (!vault->settings().isEnabled())
        m_hook.close(vault->user().uid);
    done(false, QStringLiteral("文件保护未启用：%1").arg(why));
}

void Protection::disable(UserVault *vault, const Done &done)
{
    enqueue([this, vault, done] {
        QString error;
        bool isDone = vault->setEnabled(false, &error);
        if (isDone && isDeployable()) {
            m_hook.close(vault->user().uid);
            m_proofs.remove(vault->user().uid);
            if (!m_users.isAnyEnabled()) {
                isDone = m_list.remove(m_options.entry, &error);
                QFile::remove(m_options.stateDir + kDeployment);
            }
        }
        done(isDone, error);
        endStep();
    });
}

void Protection::facts(UserVault *vault, const std::function<void(const HookFacts &)> &tell)
{
    const uid_t uid = vault->user().uid;
    const auto proof = m_proofs.constFind(uid);
    const bool isKnown = proof != m_proofs.constEnd() &&
                         proof->age.elapsed() < (proof->isKept ? kProofCountsMs : kFailureCountsMs);
    if (isKnown || !vault->settings().isEnabled() || !m_list.contains(m_options.entry) ||
        !QFileInfo::exists(m_library)) {
        tell(factsNow(uid));
        return;
    }
    enqueue([this, vault, tell] { probeForFacts(vault, tell); });
}

void Protection::probeForFacts(UserVault *vault, const std::function<void(const HookFacts &)> &tell)
{
    const uid_t uid = vault->user().uid;
    const auto proof = m_proofs.constFind(uid);
    if (proof != m_proofs.constEnd() && proof->age.elapsed() < kFailureCountsMs) {
        // The answer to another request has just found out.
        tell(factsNow(uid));
        endStep();
        return;
    }
    m_probe.run(vault, QByteArray(), [this, uid, tell](bool isKept, const QString &) {
        Proof &fresh = m_proofs[uid];
        fresh.isKept = isKept;
        fresh.age.start();
        tell(factsNow(uid));
        endStep();
    });
}

HookFacts Protection::factsNow(uid_t uid) const
{
    HookFacts facts;
    if (!isDeployable())
        return facts;
    facts.isLibraryThere = QFileInfo(m_library).isFile();
    const auto proof = m_proofs.constFind(uid);
    facts.isActive = m_list.contains(m_options.entry) && proof != m_proofs.constEnd() &&
                     proof->isKept && proof->age.elapsed() < kProofCountsMs;
    facts.needsReboot = facts.isActive && hasOlderPrograms(deployment(), m_library);
    return facts;
}

Moment Protection::deployment() const
{
    QJsonObject object;
    QString error;
    Moment moment;
    if (readJson(m_options.stateDir + kDeployment, &object, &error)) {
        moment.boot = object.value(kBoot).toString().toLatin1();
        moment.ticks = quint64(object.value(kTicks).toDouble());
    }
    return moment;
}

bool removeHook(const Protection::Options &options, QString *error)
{
    if (!PreloadList(options.preloadList).remove(options.entry, error))
        return false;
    QFile::remove(options.stateDir + kUnproven);
    QFile::remove(options.stateDir + kDeployment);
    removeFor32Bit(options.entry);
    return true;
}

bool checkHook(const Protection::Options &options, bool *wasBroken, QString *error)
{
    *wasBroken = false;
    const PreloadList list(options.preloadList);
    if (!list.contains(options.entry))
        return true;
    QProcess program;
    program.setProcessChannelMode(QProcess::MergedChannels);
    program.setStandardInputFile(QProcess::nullDevice());
    program.start(QStringLiteral("/bin/true"), QStringList());
    const bool isEnded = program.waitForFinished(kCheckPatienceMs);
    if (!isEnded) {
        program.kill();
        program.waitForFinished(kCheckPatienceMs);
    }
    const bool isFine = isEnded && program.exitStatus() == QProcess::NormalExit &&
                        program.exitCode() == 0 && program.readAll().isEmpty() &&
                        checkLibrary(libraryOf(options.entry), error);
    if (isFine)
        return true;
    *wasBroken = true;
    return list.remove(options.entry, error);
}

} // namespace services::vaultd
