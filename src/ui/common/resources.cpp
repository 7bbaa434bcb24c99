#include "ui/common/resources.h"

#include <QtGlobal>

// Q_INIT_RESOURCE declares its function in the enclosing scope, so it has to stand in the global
// one.
static void initMorvaneResources()
{
    Q_INIT_RESOURCE(morvane);
    Q_INIT_RESOURCE(fonts);
}

namespace ui {
namespace common {

void initResources()
{
    initMorvaneResources();
}

} // namespace common
} // namespace ui
