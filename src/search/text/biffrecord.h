#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

namespace search::text {

/// One record of a binary workbook with its continuations, read from front to back. Reading beyond
/// the end gives zeros and ends the record.
class BiffRecord
{
public:
    /// The record at `at` in `stream`, which must outlive this; `at` moves behind it. With
    /// `continued` the records that continue it belong to it.
    BiffRecord(const QByteArray &stream, qint64 *at, bool continued);

    /// The type at `at` without reading; 0 at the end.
    static quint16 typeAt(const QByteArray &stream, qint64 at);

    quint16 type() const { return m_type; }
    bool atEnd() const;
    /// Bytes left in the part that is being read.
    int left() const;
    /// Steps behind the current part, to the next continuation.
    void nextPart();

    quint8 byte();
    quint16 word();
    quint32 dword();
    double number();
    void skip(qint64 bytes);
    QByteArray bytes(int count);

    /// A UTF-16 or Latin-1 string of the newer workbooks: its length in units is `units`; what
    /// stands behind its characters is skipped. A continuation inside it tells its width anew.
    QString unicode(int units);

    /// Characters only, whose width `wide` a continuation tells anew.
    QString characters(int units, bool wide);

private:
    struct Part
    {
        qint64 start;
        qint64 end;
    };

    void settle();

    const QByteArray &m_stream;
    quint16 m_type;
    QVector<Part> m_parts;
    int m_part = 0;
    qint64 m_at = 0;
};

} // namespace search::text
