#include <ipc/signal_processor.h>

#include <iostream>

#ifndef PAYLOAD
#define PAYLOAD 8
#endif

/// Has a line logged, then takes a signal of two bytes.
int main() {
  ecu::vorn::ipc::SignalProcessor<PAYLOAD> processor(0);
  processor.take();
  processor.process({0, 0, 0, {}});
  processor.process({0x5a, 0, 2, {'h', 'i'}});
  std::cout << *processor.take() << "\n";
}
