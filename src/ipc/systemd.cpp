#include "ipc/systemd.h"
