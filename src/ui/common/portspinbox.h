#pragma once

#include "core/shareport.h"

#include <QSpinBox>

namespace fileshare {

/// A port that shares may use.
class PortSpinBox : public QSpinBox
{
    Q_OBJECT

public:
    explicit PortSpinBox(int port = core::kDefaultSharePort, QWidget *parent = nullptr)
        : QSpinBox(parent)
    {
        setObjectName(QStringLiteral("SharePortSpin"));
        setRange(core::kLeastSharePort, core::kMostSharePort);
        setValue(port);
    }
};

} // namespace fileshare
