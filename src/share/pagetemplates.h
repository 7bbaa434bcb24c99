#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <initializer_list>

namespace share {

/// A piece of HTML with places to fill, taken apart once. `{{key}}` is escaped as it is filled,
/// `{{&key}}` takes HTML as it is. What is filled in is never looked at again, so no text of others
/// can name a place. Filling is thread-safe.
class PageTemplate
{
public:
    struct Value
    {
        Value(const char *key, const QString &text);
        /// HTML that is complete in itself.
        Value(const char *key, const QByteArray &html);

        const char *key;
        QByteArray escaped;
        QByteArray html;
    };

    PageTemplate() = default;
    explicit PageTemplate(const QByteArray &text);

    /// Places without a value stay empty.
    void appendTo(QByteArray *out, std::initializer_list<Value> values) const;
    QByteArray filled(std::initializer_list<Value> values) const;

private:
    struct Part
    {
        QByteArray literal;
        QByteArray key; ///< Behind the literal; empty at the end.
        bool isHtml = false;
    };
    QVector<Part> m_parts;
};

/// A named block of the share's pages. In the blocks' own text the product's name is a link to its
/// maker already.
const PageTemplate &pageTemplate(const char *name);

/// A whole page: the common frame and style around `body`, which is HTML, as is `head`.
QByteArray page(const QString &title, const QByteArray &body,
                const QByteArray &head = QByteArray());

} // namespace share
