// The program's own start-up, watched from outside until its window has been painted.

#include "app/startup.h"
#include "firstpaint.h"

namespace {

void watchFirstPaint()
{
    qApp->installEventFilter(new FirstPaint(qApp));
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(watchFirstPaint)

int main(int argc, char *argv[])
{
    return runApplication(argc, argv);
}
