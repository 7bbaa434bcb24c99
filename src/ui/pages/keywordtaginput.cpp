#include "ui/pages/keywordtaginput.h"
