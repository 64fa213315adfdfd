#include "ipc/ipc_signal.h"

#include <iomanip>
#include <ostream>

namespace ecu::vorn::ipc {

std::ostream& operator<<(std::ostream& os, const IpcSignal& signal) {
  os << std::hex << std::setfill('0');
  os << std::setw(2) << signal.signal_id << ": ";
  os << std::setw(2) << unsigned{signal.status} << ", ";
  os << signal.sampling_frame << " { ";
  for (const char byte : signal.data) os << std::setw(2) << unsigned{static_cast<unsigned char>(byte)} << " ";
  return os << "}" << std::dec << std::setfill(' ');
}

}  // namespace ecu::vorn::ipc
