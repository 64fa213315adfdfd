#pragma once

#include <memory>

#include "ipc/data_consumer.h"
#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// Where signals come from. `QueuePortReader` implements it; a test can implement another one.
template <typename Signal>
class KELTIPC_EXPORT IDataSource {
 public:
  virtual ~IDataSource() = default;

  /// Takes ownership of the consumer and destroys the previous one. Must not be called while `receive_data` runs.
  virtual void set_consumer(std::unique_ptr<IDataConsumer<Signal>> new_consumer) = 0;

  /// Runs the receiving loop on the calling thread until it ends.
  virtual void receive_data() = 0;
};

}  // namespace ecu::vorn::ipc
