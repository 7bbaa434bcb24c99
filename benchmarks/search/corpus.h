#pragma once

#include <QString>
#include <QStringList>

#include <random>

/// How often a search word occurs. Chinese ones are of every frequency.
enum class WordKind { Frequent, Rare, Absent, Chinese };

/// Made-up file names and texts, the same in every run: ASCII and Chinese words, frequent and rare
/// ones.
class Corpus
{
public:
    Corpus();

    /// Writes `files` empty files into `directories` directories below `root`, with times spread
    /// over three years. False with a message on failure.
    bool writeTree(const QString &root, int files, int directories, QString *error);

    /// A text of some 500 to 7000 characters; four in ten are Chinese.
    QString text();

    /// 50 search words of a kind.
    QStringList nameWords(WordKind kind);
    QStringList textWords(WordKind kind);

private:
    int below(int bound);
    QString pick(const QStringList &words);
    QString topic();
    QString zipfWord();
    QString chineseRun(int characters);
    QString sentence(bool chinese);
    bool writeFile(const QString &path, QString *error);

    std::mt19937 m_random{20240601};
    QStringList m_topics;        // frequent in names
    QStringList m_chineseTopics; // likewise
    QStringList m_vocabulary;    // of names and texts; in texts the first are the most frequent
};
