// Makes libkeltipc log a warning, through whichever logging library is linked, then assembles and prints a signal.
#include <ipc/signal_processor.h>

#include <iostream>

int main() {
  ecu::vorn::ipc::SignalProcessor<8> processor(0);
  processor.take();  // Logs a warning, because there is no signal yet.
  processor.process({0, 0, 0, {}});
  processor.process({0x5a, 0, 2, {'h', 'i'}});
  std::cout << *processor.take() << "\n";
}
