#include "core/ipc/ipcclient.h"
