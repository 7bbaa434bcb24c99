#include "search/contentextractor.h"
