#include "core/ipc/framecodec.h"
