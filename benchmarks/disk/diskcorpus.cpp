#include "disk/diskcorpus.h"

#include <QDir>
#include <QFile>
#include <QVector>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace {

constexpr int kDeepest = 12;
constexpr int kPiece = 1024 * 1024;

/// The same seed gives the same content.
void writeFile(const QString &path, qint64 size, quint32 seed)
{
    static QByteArray piece(kPiece, Qt::Uninitialized);
    std::mt19937 random(seed);
    for (int i = 0; i < kPiece && i < size; i += 4) {
        const quint32 word = quint32(random());
        std::memcpy(piece.data() + i, &word, 4);
    }
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        qFatal("cannot write %s", qPrintable(path));
    for (qint64 left = size; left > 0; left -= kPiece)
        if (file.write(piece.constData(), std::min<qint64>(left, kPiece)) <= 0)
            qFatal("cannot write %s", qPrintable(path));
}

} // namespace

void makeTree(const QString &root, int files, int dirs)
{
    struct Dir
    {
        QByteArray path;
        int depth;
    };
    std::mt19937 random(1);
    QVector<Dir> made{{QFile::encodeName(root), 0}};
    while (made.size() < dirs) {
        const Dir &parent = made.at(int(random() % quint32(made.size())));
        if (parent.depth == kDeepest - 1)
            continue;
        const Dir dir{parent.path + "/directory-" + QByteArray::number(made.size()),
                      parent.depth + 1};
        QDir().mkdir(QFile::decodeName(dir.path));
        made.append(dir);
    }
    for (int i = 0; i < files; ++i) {
        const Dir &dir = made.at(i % dirs);
        const QByteArray path = dir.path + "/some file " + QByteArray::number(i) + ".dat";
        const int fd = open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0 || ftruncate(fd, off_t(random() % 200000)) != 0)
            qFatal("cannot write %s", path.constData());
        close(fd);
    }
}

DuplicateCorpus makeDuplicates(const QString &root, qint64 total)
{
    // Shares of the whole by size of file: few large ones, many small ones.
    const struct
    {
        qint64 size;
        int count;
    } kinds[] = {{total / 8, 2},        {total / 40, 8}, {total / 200, 30}, {total / 2000, 200},
                 {total / 20000, 2000}, {9000, 2000},    {3000, 2000}};
    DuplicateCorpus corpus;
    quint32 seed = 0;
    for (const auto &kind : kinds) {
        for (int i = 0; i < kind.count; ++i) {
            // Ten files of a size, half of them equal in pairs, the others like no other.
            const qint64 size = kind.size + i / 10;
            const bool isEqual = kind.count < 10 || i % 10 < 5;
            const bool isSecond = isEqual && i % 10 % 2 == 1;
            if (!isSecond)
                ++seed;
            const QString path = QStringLiteral("%1/%2-%3").arg(root).arg(size).arg(i);
            writeFile(path, size, seed);
            corpus.sizeGroups[size].append(path);
            ++corpus.files;
            const bool hasTwin = isSecond || (isEqual && i % 10 < 4) || kind.count < 10;
            if (hasTwin && size > 4096) {
                corpus.survivors.append(path);
                corpus.survivingBytes += size;
            }
        }
    }
    return corpus; // the largest were made first
}
