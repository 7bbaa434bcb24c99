#include "vault/vaultcontroller.h"
