#pragma once

#include <optional>
#include <string>

#include "commands.h"
#include "port_loop.h"
#include "reception.h"
#include "signal_text.h"

namespace keltipc {

/// Puts frames together and filters the signals; says at the end what came.
class ReceivingClient : public PortClient {
 public:
  /// Opens the port, or waits for it: what a derived class measures begins after that. Throws InputError.
  explicit ReceivingClient(const ReceiveOptions& options);

  /// Reads the port until something ends that. Returns the exit status. To be called once.
  int run();

  void on_loss() override { reception.restart(); }

 protected:
  /// The signal that this message completes, if it passes the filters.
  std::optional<ecu::vorn::ipc::IpcSignal> signal_from(const char* bytes, std::size_t size);
  bool passes_filters(std::uint32_t id, std::uint8_t status) const { return passes(source.filters, id, status); }

  /// The lines for standard error after the end.
  virtual std::string report();

  const FilteredDevice source;
  Reception reception;

 private:
  const ReceiveOptions& receive_options;
  Descriptor device;
};

}  // namespace keltipc
