#pragma once

#include <QString>
#include <QWidget>

class QLabel;
class QPlainTextEdit;

/// The product, the link to its maker, and the text of the agreement. GUI thread only.
class AboutPage : public QWidget
{
    Q_OBJECT

public:
    /// An empty path means the file beside the program's folder.
    explicit AboutPage(QWidget *parent = nullptr, const QString &protocolPath = QString());

    /// Reads the agreement anew; a problem shows in its place.
    void loadProtocolFromMarkdown();

private:
    QWidget *buildProduct();
    QWidget *buildProtocol();

    QString m_protocolPath;
    QPlainTextEdit *m_protocol = nullptr;
};
