// Does not compile: ports do not carry 16 payload bytes.
#include "ipc/signal_processor.h"

ecu::vorn::ipc::SignalProcessor<16> none(0);
