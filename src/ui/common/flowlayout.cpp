#include "ui/common/flowlayout.h"
