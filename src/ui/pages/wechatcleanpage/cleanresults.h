#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>
#include <QVector>

namespace wechatclean {

/// One physical file of a duplicate group.
struct ResultFile
{
    QString path;
    QDateTime modified;
    QStringList aliasPaths; ///< Other paths of the same physical file.

    /// The path and its aliases, each once.
    QStringList allPaths() const;
};

struct ResultGroup
{
    static constexpr int kFirstRows = 20;

    qint64 size = 0; ///< Bytes of each file.
    QString hash;    ///< Hexadecimal; may be empty.
    QVector<ResultFile> files;
    int kept = 0;           ///< Index of the file that stays.
    int shown = kFirstRows; ///< Rows that the card shows at most; above `kept`.

    qint64 reclaimable() const { return size * qMax(0, files.size() - 1); }
};

struct ResultSummary
{
    int totalGroups = 0;
    int shownGroups = 0;
    qint64 totalReclaimable = 0; ///< Bytes.
};

/// What a clean or an undo has done since the scan.
struct ResultOutcome
{
    QString title; ///< Empty if there has been none.
    QString text;
    bool isOutdated = false; ///< There are duplicates that the groups do not show.
};

/// What the page shows of the last scan.
struct CleanResults
{
    QVector<ResultGroup> groups;
    ResultSummary summary;
    ResultOutcome outcome;
    QStringList scanDirs; ///< Those of the scan, which the user may have changed since.
};

/// What a list of actions is going to do.
struct ActionTotals
{
    int groups = 0;
    int copies = 0;   ///< Physical files whose room becomes free.
    int paths = 0;    ///< Paths that become links.
    qint64 bytes = 0; ///< Room that becomes free.
};

/// Takes what the worker sent: the summary first, then the groups. Entries that are no groups of
/// two files are left out.
void takeGroups(const QVariantList &groups, CleanResults *results);

/// The action that merges a group into its kept file, as WechatCleanWorker takes it; empty if there
/// is nothing to replace. "aliasPaths" holds all paths of a physical file, its own included, since
/// replacing only some of them would free nothing.
QVariantMap buildAction(const ResultGroup &group);
/// The actions of all groups that have one.
QVariantList buildAllActions(const CleanResults &results);
ActionTotals totalsOf(const QVariantList &actions);

/// Brings the groups up to date with what a clean did, by its record: merged files go, groups left
/// with fewer than two files go, and the summary is counted anew. The merged paths become aliases
/// of the kept file, because they are now, and a later merge must take all links of an inode.
void applyRecord(const QVariantMap &record, CleanResults *results);

} // namespace wechatclean
