#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// Controls and queries systemd units through the manager's D-Bus interface (org.freedesktop.systemd1(5)).
///
/// Any number of threads may share an object: it holds only D-Bus names. Each call uses the calling thread's default
/// system bus and waits for the reply (docs/blocking.md says how long). If the bus or the manager fails or refuses, a
/// member logs an ERROR or CRITICAL line to the module "ipc.systemd" and returns false, an empty string or vector,
/// ACTIVE_STATE_ERROR or INSTALL_STATE_ERROR. An empty unit name, an action outside the enumeration and an unknown
/// state give the same results without a line. Throws only std::bad_alloc.
///
/// To test an application without a bus, derive from this class and override the members that use the bus:
/// `start_isolate_target`, `list_unit_dependencies`, the two states, and the four actions on units. The other virtual
/// members call these.
class KELTIPC_EXPORT Systemd {
 public:
  /// The property "ActiveState".
  enum ActiveState : std::int32_t {
    ACTIVE_STATE_ERROR = 0,  ///< could not be read, or a state without an enumerator ("maintenance")
    ACTIVE_STATE_ACTIVE = 1,
    ACTIVE_STATE_INACTIVE = 2,
    ACTIVE_STATE_ACTIVATING = 3,
    ACTIVE_STATE_DEACTIVATING = 4,
    ACTIVE_STATE_FAILED = 5,
    ACTIVE_STATE_RELOADING = 6,
  };

  /// The property "UnitFileState".
  enum InstallState : std::int32_t {
    INSTALL_STATE_ERROR = 0,  ///< no unit name, no reply, or a state without an enumerator ("indirect")
    INSTALL_STATE_ENABLED = 1,
    INSTALL_STATE_ENABLED_RUNTIME = 2,
    INSTALL_STATE_LINKED = 3,
    INSTALL_STATE_LINKED_RUNTIME = 4,
    INSTALL_STATE_MASKED = 5,
    INSTALL_STATE_MASKED_RUNTIME = 6,
    INSTALL_STATE_STATIC = 7,
    INSTALL_STATE_DISABLED = 8,  ///< also for a unit without a unit file, or if the property could not be read
  };

  enum UnitAction : std::int32_t {
    UNIT_ACTION_STOP = 0,
    UNIT_ACTION_START = 1,
    UNIT_ACTION_RESTART = 2,
    UNIT_ACTION_RELOAD = 3,
  };

  Systemd();
  virtual ~Systemd();

  /// @name Targets
  /// ".target" is appended to a target's name that does not end in it.
  /// @{

  /// Switches the system to the target: starts it and stops every unit that it does not need, possibly the caller's
  /// own service (job mode "isolate"). True means that the job was queued, not that it is done.
  virtual bool start_isolate_target(const std::string& target);
  virtual bool change_target(const std::string& target);  ///< The same as `start_isolate_target`.

  /// Calls `stop_unit` for each unit in `list_target_services` that ends in ".service", in this order. Continues
  /// after a failure.
  virtual void stop_target_services(const std::string& target);
  virtual void start_target_services(const std::string& target);  ///< The same with `start_unit`.

  /// True for a target that is active or activating, false for one that is reloading.
  virtual bool is_target_active(const std::string& target);

  /// A string-array property of the unit's interface org.freedesktop.systemd1.Unit, for example "Wants". `unit` is a
  /// full unit name: nothing is appended.
  virtual std::vector<std::string> list_unit_dependencies(const std::string& unit, const std::string& property);

  /// All units in the target's property "Wants", not only services.
  virtual std::vector<std::string> list_target_services(const std::string& target);

  /// True if no service that the target wants is active, activating, deactivating or reloading. A service whose state
  /// cannot be read counts as stopped. Also true if the target's list cannot be read.
  virtual bool are_target_services_stopped(const std::string& target);

  /// @}
  /// @name The states of units
  /// Names are full unit names ("name.service"). The manager loads the unit to answer. A unit that does not exist is
  /// ACTIVE_STATE_INACTIVE and INSTALL_STATE_DISABLED; docs/unit-control.md says how to recognise it.
  /// @{

  virtual ActiveState get_unit_activestate(const std::string& unit);
  virtual InstallState get_unit_installstate(const std::string& unit);

  /// @}
  /// @name Starting and stopping units
  /// True means that the manager queued the job (mode "replace"), not that it is done. False means that the manager
  /// refused or could not be reached; a request that failed can have reached the manager all the same.
  /// @{

  virtual bool start_unit(const std::string& unit);
  virtual bool stop_unit(const std::string& unit);
  virtual bool restart_unit(const std::string& unit);
  virtual bool reload_unit(const std::string& unit);

  /// Performs one of the four actions with any job mode. False for a value outside the enumeration.
  bool start_stop_unit(const std::string& unit, UnitAction action, const std::string& mode);

  /// @}

  /// The enumerator's name, such as "Systemd::ACTIVE_STATE_ACTIVE". Empty for a value outside the enumeration: while
  /// one thread passes such a value, no other thread may call this overload at all, on any object.
  std::string to_str(ActiveState state);
  std::string to_str(InstallState state);  ///< The same for install states.

  /// @name The bus
  /// Each makes one request to the D-Bus destination `service` and returns an empty value if it fails.
  /// @{

  /// The object path of a unit, through the method LoadUnit.
  std::string get_object_instance(const std::string& service, const std::string& interface, const std::string& path,
                                  const std::string& unit);
  /// A property of type string.
  std::string get_property_value(const std::string& service, const std::string& interface, const std::string& path,
                                 const std::string& property);
  /// A property of type array of strings.
  std::vector<std::string> get_property_value_array(const std::string& service, const std::string& interface,
                                                    const std::string& path, const std::string& property);

  /// @}

 private:
  KELTIPC_NO_EXPORT std::optional<std::string> state_word(const std::string& unit, const std::string& property);

  std::string service_name;
  std::string manager_interface;
  std::string unit_interface;
  std::string service_interface;
  std::string target_interface;
  std::string manager_path;
};

#if defined(__arm__)
static_assert(sizeof(Systemd) == 148, "part of the binary interface on 32-bit ARM");
#endif

}  // namespace ecu::vorn::ipc
