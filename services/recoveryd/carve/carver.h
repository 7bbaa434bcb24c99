#pragma once

#include "recoveryd/carve/windowreader.h"

#include <QString>
#include <QVector>

namespace services {
namespace recoveryd {

/// How much of a carved file has been seen to be right.
enum class Evidence {
    Header,    ///< Only its first bytes.
    Structure, ///< Its inner structure up to a point, but not its end.
    End,       ///< Its own end.
    Container, ///< Its end, and that everything its directory names is there.
};

struct CarvedFile
{
    QString type;      ///< "PDF"
    QString extension; ///< "pdf"
    qint64 length = 0; ///< Bytes; without a seen end, up to where the structure broke off.
    Evidence evidence = Evidence::Header;
    /// How far the carver had to look, in bytes from the start; what a scan's budget is about.
    qint64 examined = 0;
};

/// Recognises one format by its first bytes and finds where a file of it ends. Stateless.
class Carver
{
public:
    virtual ~Carver() = default;

    /// The bytes that every file of the format begins with, at least three.
    virtual QByteArray magic() const = 0;
    /// Looks at the file that begins at `start`, where the magic stands. False if it is none after
    /// all. A damaged or cut file is no failure, but Evidence::Header or Structure.
    [[nodiscard]] virtual bool carve(WindowReader &reader, qint64 start,
                                     CarvedFile *file) const = 0;
};

/// One carver a format, in the order in which they are asked.
const QVector<const Carver *> &carvers();

} // namespace recoveryd
} // namespace services
