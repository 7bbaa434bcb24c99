#include "ui/common/apptooltip.h"
