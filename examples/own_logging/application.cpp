// Has libkeltipc log a line, whichever library takes it, then puts a signal of two bytes together and prints it.
#include <ipc/signal_processor.h>

#include <iostream>

int main() {
  ecu::vorn::ipc::SignalProcessor<8> processor(0);
  processor.take();  // There is none yet: a warning.
  processor.process({0, 0, 0, {}});
  processor.process({0x5a, 0, 2, {'h', 'i'}});
  std::cout << *processor.take() << "\n";
}
