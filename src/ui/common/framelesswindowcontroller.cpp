#include "ui/common/framelesswindowcontroller.h"
