#include "ui/common/statwidgets.h"
