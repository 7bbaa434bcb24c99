#pragma once

#include <QSpinBox>

namespace fileshare {

/// A port that shares may use.
class PortSpinBox : public QSpinBox
{
    Q_OBJECT

public:
    static constexpr int kLeast = 1024;
    static constexpr int kMost = 65535;
    static constexpr int kDefault = 9800;

    explicit PortSpinBox(int port = kDefault, QWidget *parent = nullptr)
        : QSpinBox(parent)
    {
        setObjectName(QStringLiteral("SharePortSpin"));
        setRange(kLeast, kMost);
        setValue(port);
    }
};

} // namespace fileshare
