#include "recoveryd/carve/documents/documentcarvers.h"
#include "recoveryd/carve/peek.h"

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxProgram = qint64(4) << 30;
constexpr quint32 kNoBits = 8; // a section that takes no space in the file

/// Fields of either width and byte order.
class ElfFields
{
public:
    explicit ElfFields(const Peek &file)
        : m_file(file)
        , m_isWide(file.u8(4) == 2)
        , m_isLittle(file.u8(5) == 1)
    {}

    bool isWide() const { return m_isWide; }
    quint16 u16(qint64 at) const { return m_isLittle ? m_file.le16(at) : m_file.be16(at); }
    quint32 u32(qint64 at) const { return m_isLittle ? m_file.le32(at) : m_file.be32(at); }
    /// An offset or a size; absurd ones are cut.
    qint64 word(qint64 at) const
    {
        const quint64 value = !m_isWide ? u32(at) : m_isLittle ? m_file.le64(at) : m_file.be64(at);
        return qint64(qMin<quint64>(value, quint64(1) << 40));
    }

private:
    const Peek &m_file;
    bool m_isWide;
    bool m_isLittle;
};

} // namespace

bool carveElf(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek elf(reader, start);
    const ElfFields fields(elf);
    if (elf.u8(4) < 1 || elf.u8(4) > 2 || elf.u8(5) < 1 || elf.u8(5) > 2 || elf.u8(6) != 1)
        return false;
    const bool isWide = fields.isWide();
    const qint64 programs = fields.word(isWide ? 32 : 28);
    const qint64 sections = fields.word(isWide ? 40 : 32);
    const qint64 counts = isWide ? 54 : 42; // e_phentsize
    const int programSize = fields.u16(counts);
    const int programCount = fields.u16(counts + 2);
    const int sectionSize = fields.u16(counts + 4);
    const int sectionCount = fields.u16(counts + 6);
    qint64 end = isWide ? 64 : 52;
    end = qMax(end, programs + qint64(programSize) * programCount);
    end = qMax(end, sections + qint64(sectionSize) * sectionCount);
    for (int i = 0; i < programCount && programSize >= 32; ++i) {
        const qint64 at = programs + qint64(i) * programSize;
        end = qMax(end, fields.word(at + (isWide ? 8 : 4)) + fields.word(at + (isWide ? 32 : 16)));
    }
    for (int i = 0; i < sectionCount && sectionSize >= 40; ++i) {
        const qint64 at = sections + qint64(i) * sectionSize;
        if (fields.u32(at + 4) != kNoBits)
            end = qMax(end,
                       fields.word(at + (isWide ? 24 : 16)) + fields.word(at + (isWide ? 32 : 20)));
    }
    file->setKind("elf");
    file->inside = Inside::Files;
    file->holdsText = true;
    const bool isThere = end <= kMaxProgram && elf.has(0, end) && programCount + sectionCount > 0;
    file->setEnd(qMin(qMin(end, elf.room()), kMaxProgram),
                 isThere ? Evidence::End : Evidence::Header);
    return true;
}

bool carvePe(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek pe(reader, start);
    const qint64 head = pe.le32(60);
    const int sections = pe.le16(head + 6);
    const int optional = pe.le16(head + 20);
    if (head < 64 || head > 4096 || !pe.is(head, "PE\0\0") || sections < 1 || sections > 96)
        return false;
    const bool isWide = pe.le16(head + 24) == 0x20B;
    qint64 end = 0;
    for (int i = 0; i < sections; ++i) {
        const qint64 at = head + 24 + optional + 40 * i;
        end = qMax(end, qint64(pe.le32(at + 20)) + pe.le32(at + 16));
    }
    const qint64 certificates = head + 24 + (isWide ? 112 : 96) + 4 * 8;
    if (pe.le32(certificates) >= end && pe.le32(certificates) < end + 4096)
        end = qint64(pe.le32(certificates)) + pe.le32(certificates + 4);
    const bool isLibrary = (pe.le16(head + 22) & 0x2000) != 0;
    file->setKind(isLibrary ? "dll" : "exe");
    file->inside = Inside::Files;
    file->holdsText = true;
    file->setEnd(qMin(end, pe.room()), pe.has(0, end) ? Evidence::End : Evidence::Structure);
    return true;
}

} // namespace services::recoveryd
