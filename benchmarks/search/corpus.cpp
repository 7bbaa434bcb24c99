#include "corpus.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const int wordsPerKind = 50;
const int vocabularySize = 5000;
const int references = 20000;          // each in a handful of texts
const qint64 firstSecond = 1609459200; // 2021-01-01
const qint64 timeSpan = 3LL * 365 * 86400;

const char *const extensions[] = {"txt", "jpg", "pdf", "docx", "png",
                                  "mp3", "cpp", "h",   "zip",  "md"};

QString reference(int number)
{
    return QStringLiteral("ref%1").arg(number, 5, 10, QLatin1Char('0'));
}

// Common characters; texts are drawn from them, the first ones more often.
QString hanCharacters()
{
    return QStringLiteral("的一是在不了有和人这中大为上个国我以要他时来用们生到作地于出就分对成会可"
                          "主发年动同工也能下过子"
                          "说产种面而方后多定行学法所民得经十三之进着等部度家电力里如水化高自二理起"
                          "小物现实加量都两体制机"
                          "当使点从业本去把性好应开它合还因由其些然前外天政四日那社义事平形相全表间"
                          "样与关各重新线内数正心"
                          "反你明看原又么利比或但质气第向道命此变条只没结解问意建月公无系军很情者最"
                          "立代想已通并提直题党程"
                          "展五果料象员革位入常文总次品式活设及管特件长求老头基资边流路级少图山统接"
                          "知较将组见计别她手角期");
}

} // namespace

Corpus::Corpus()
    : m_topics(QStringLiteral("report invoice photo draft backup IMG scan notes final contract "
                              "song budget")
                   .split(QLatin1Char(' ')))
    , m_chineseTopics(QStringLiteral("合同 会议纪要 报表 照片 备份 项目 年度预算 说明书")
                          .split(QLatin1Char(' ')))
{
    const QStringList syllables =
        QStringLiteral("ka to mi ra ne so lu vi chen zhou pra ten").split(QLatin1Char(' '));
    for (int i = 0; i < vocabularySize; ++i) {
        QString word;
        for (int n = 2 + below(3); n > 0; --n)
            word += pick(syllables);
        m_vocabulary.append(word);
    }
}

int Corpus::below(int bound)
{
    return int(m_random() % unsigned(bound));
}

QString Corpus::pick(const QStringList &words)
{
    return words.at(below(words.size()));
}

QString Corpus::topic()
{
    return below(3) == 0 ? pick(m_chineseTopics) : pick(m_topics);
}

// The word of rank n comes about n times less often than the first.
QString Corpus::zipfWord()
{
    const double share = double(m_random()) / double(std::mt19937::max());
    return m_vocabulary.at(qMin(int(std::pow(vocabularySize, share)), vocabularySize) - 1);
}

QString Corpus::chineseRun(int characters)
{
    static const QString han = hanCharacters();
    QString run;
    for (int i = 0; i < characters; ++i)
        run += han.at(below(1 + below(han.size())));
    return run;
}

QString Corpus::sentence(bool chinese)
{
    if (chinese)
        return chineseRun(8 + below(20)) + QStringLiteral("，") + chineseRun(8 + below(20)) +
               QStringLiteral("。\n");
    QStringList words;
    for (int n = 6 + below(10); n > 0; --n)
        words.append(zipfWord());
    if (below(8) == 0)
        words.append(reference(below(references)));
    return words.join(QLatin1Char(' ')) + QLatin1String(".\n");
}

QString Corpus::text()
{
    const bool chinese = below(10) < 4;
    const int size = 500 + below(6500);
    QString text;
    while (text.size() < size)
        text += sentence(chinese);
    if (below(400) == 0)
        text += QStringLiteral("zyxwrare 独角兽计划\n");
    return text;
}

bool Corpus::writeFile(const QString &path, QString *error)
{
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    timespec times[2] = {};
    times[0].tv_sec = times[1].tv_sec = firstSecond + qint64(m_random()) % timeSpan;
    const bool ok = fd >= 0 && ::futimens(fd, times) == 0;
    if (!ok)
        *error = path + QLatin1String(": ") + QString::fromLocal8Bit(std::strerror(errno));
    if (fd >= 0)
        ::close(fd);
    return ok;
}

bool Corpus::writeTree(const QString &root, int files, int directories, QString *error)
{
    const QStringList areas{QStringLiteral("文档"), QStringLiteral("Downloads"),
                            QStringLiteral("Pictures"), QStringLiteral("src"),
                            QStringLiteral("work")};
    QString dir;
    int opened = -1;
    for (int i = 0; i < files; ++i) {
        const int number = int(qint64(i) * directories / files);
        if (number != opened) {
            opened = number;
            dir = QStringLiteral("%1/%2/%3_%4/%5")
                      .arg(root, pick(areas), topic())
                      .arg(number)
                      .arg(pick(m_vocabulary));
            if (!QDir().mkpath(dir)) {
                *error = dir + QLatin1String(": cannot be made");
                return false;
            }
        }
        const QString name = QStringLiteral("%1_%2_%3.%4")
                                 .arg(topic(), pick(m_vocabulary))
                                 .arg(i)
                                 .arg(QLatin1String(extensions[below(10)]));
        if (!writeFile(dir + QLatin1Char('/') + name, error))
            return false;
    }
    return true;
}

QStringList Corpus::nameWords(WordKind kind)
{
    QStringList words;
    for (int i = 0; i < wordsPerKind; ++i) {
        switch (kind) {
        case WordKind::Frequent: // from every row to one in twenty
            words.append(i < m_topics.size() ? m_topics.at(i) : m_vocabulary.at(i).left(2 + i % 2));
            break;
        case WordKind::Rare: // from a handful of rows to a few hundred
            words.append(i % 2 ? m_vocabulary.at(i)
                               : m_topics.at(i % m_topics.size()) + QLatin1Char('_') +
                                     m_vocabulary.at(i));
            break;
        case WordKind::Absent:
            words.append(QStringLiteral("zzqx%1").arg(i));
            break;
        case WordKind::Chinese:
            if (i < m_chineseTopics.size())
                words.append(m_chineseTopics.at(i));
            else if (i % 3 == 0)
                words.append(QStringLiteral("缺席") + chineseRun(2));
            else
                words.append(pick(m_chineseTopics) + QLatin1Char('_') + m_vocabulary.at(i));
            break;
        }
    }
    return words;
}

QStringList Corpus::textWords(WordKind kind)
{
    QStringList words;
    for (int i = 0; i < wordsPerKind; ++i) {
        switch (kind) {
        case WordKind::Frequent:
            words.append(m_vocabulary.at(i));
            break;
        case WordKind::Rare: // single words, and phrases that only the second stage finds
            words.append(i % 2 ? reference(i * 397 % references)
                               : m_vocabulary.at(i) + QLatin1Char(' ') + m_vocabulary.at(2 * i));
            break;
        case WordKind::Absent:
            words.append(QStringLiteral("zzqx%1").arg(i));
            break;
        case WordKind::Chinese:
            words.append(i == 0 ? QStringLiteral("独角兽计划") : chineseRun(1 + i % 3));
            break;
        }
    }
    return words;
}
