#include "ui/pages/filesearchpage.h"
