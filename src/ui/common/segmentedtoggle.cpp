#include "ui/common/segmentedtoggle.h"
