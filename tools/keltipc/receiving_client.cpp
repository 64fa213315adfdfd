#include "receiving_client.h"

#include <fcntl.h>

#include <csignal>
#include <utility>

#include "exit_status.h"
#include "input_error.h"
#include "port_setup.h"
#include "say.h"
#include "signal_text.h"
#include "stop_request.h"

namespace keltipc {

ReceivingClient::ReceivingClient(const ReceiveOptions& options)
    : source(parse_filtered_device(options.source)),
      reception(options.port.frame, parse_named(parse_frame_start_id, options.frame_start, "--frame-start: ")),
      receive_options(options),
      device(open_device(source.device, O_RDONLY, options.port.wait)) {}

std::optional<ecu::vorn::ipc::IpcSignal> ReceivingClient::signal_from(const char* bytes, std::size_t size) {
  auto signal = reception.take(bytes, size);
  if (signal && !passes_filters(signal->signal_id, signal->status)) signal.reset();
  return signal;
}

int ReceivingClient::run() {
  if (!device) return exit_timed_out;
  set_up_logging(receive_options.port.log_level);
  std::signal(SIGPIPE, SIG_IGN);
  note_stop_signals();
  PortLoop loop({source.device, receive_options.port.frame, receive_options.follow}, std::move(device), *this);
  const Outcome outcome = loop.run();
  if (outcome.is_quiet) return outcome.status;
  write_error_text((outcome.sentence.empty() ? "" : error_line(outcome.sentence)) + report());
  return outcome.status;
}

std::string ReceivingClient::report() {
  std::string text;
  for (const std::string& sentence : reception.summary(source.device)) text += error_line(sentence);
  return text;
}

}  // namespace keltipc
