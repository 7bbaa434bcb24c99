#include "ui/common/windowtitlebar.h"
