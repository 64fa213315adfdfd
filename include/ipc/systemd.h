#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// Controls and queries systemd units through the manager's D-Bus interface (org.freedesktop.systemd1(5)).
///
/// The object holds nothing but D-Bus names; any number of threads may share one. Each call takes a reference to
/// the calling thread's default system bus, waits for the reply (docs/unit-control.md says how long that can be)
/// and drops the reference. Failure is an ERROR or CRITICAL line in the log module "ipc.systemd" and the member's
/// failure value: false, an empty string or vector, ACTIVE_STATE_ERROR, INSTALL_STATE_ERROR. Nothing is thrown
/// but std::bad_alloc.
///
/// The composite members call the others through the virtual table: derive, override those that ask the bus
/// (`start_isolate_target`, `list_unit_dependencies`, the two states, `start_unit` and its three siblings), and an
/// application is tested without a bus.
class KELTIPC_EXPORT Systemd {
 public:
  /// The property "ActiveState".
  enum ActiveState : std::int32_t {
    ACTIVE_STATE_ERROR = 0,  ///< not to be had, or a word without a value here ("maintenance")
    ACTIVE_STATE_ACTIVE = 1,
    ACTIVE_STATE_INACTIVE = 2,
    ACTIVE_STATE_ACTIVATING = 3,
    ACTIVE_STATE_DEACTIVATING = 4,
    ACTIVE_STATE_FAILED = 5,
    ACTIVE_STATE_RELOADING = 6,
  };

  /// The property "UnitFileState".
  enum InstallState : std::int32_t {
    INSTALL_STATE_ERROR = 0,  ///< no unit name, no manager, or a word without a value here ("indirect")
    INSTALL_STATE_ENABLED = 1,
    INSTALL_STATE_ENABLED_RUNTIME = 2,
    INSTALL_STATE_LINKED = 3,
    INSTALL_STATE_LINKED_RUNTIME = 4,
    INSTALL_STATE_MASKED = 5,
    INSTALL_STATE_MASKED_RUNTIME = 6,
    INSTALL_STATE_STATIC = 7,
    INSTALL_STATE_DISABLED = 8,  ///< also a unit without a unit file, and a property that could not be read
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
  /// A name without ".target" at its end gets it appended.
  /// @{

  /// Switches the system to the target: starts it and stops every unit that it does not need (job mode
  /// "isolate"). True means that the job was queued, not that it is done.
  virtual bool start_isolate_target(const std::string& target);
  virtual bool change_target(const std::string& target);  ///< `start_isolate_target` by another name

  /// `stop_unit` for each ".service" among the units that the target wants, in the order listed. Jobs are queued;
  /// one that fails does not keep the rest from being tried.
  virtual void stop_target_services(const std::string& target);
  virtual void start_target_services(const std::string& target);  ///< the same with `start_unit`

  /// True for a target that is active or activating; not for one that reloads.
  virtual bool is_target_active(const std::string& target);

  /// The elements of a string-array property of interface org.freedesktop.systemd1.Unit, as the bus has them.
  virtual std::vector<std::string> list_unit_dependencies(const std::string& unit, const std::string& property);

  /// All units that the target wants, services or not.
  virtual std::vector<std::string> list_target_services(const std::string& target);

  /// True when no service that the target wants is active, activating, deactivating or reloading. A service
  /// whose state cannot be read counts as stopped, and so does every service of a target that cannot be read.
  virtual bool are_target_services_stopped(const std::string& target);

  /// @}
  /// @name The states of units
  /// Units go by their full names ("name.service"). The manager is asked and loads the unit for it; one that does
  /// not exist is ACTIVE_STATE_INACTIVE and INSTALL_STATE_DISABLED.
  /// @{

  virtual ActiveState get_unit_activestate(const std::string& unit);
  virtual InstallState get_unit_installstate(const std::string& unit);

  /// @}
  /// @name Starting and stopping units
  /// True means that the manager queued the job (mode "replace"), not that it is done; false that it refused, or
  /// could not be reached.
  /// @{

  virtual bool start_unit(const std::string& unit);
  virtual bool stop_unit(const std::string& unit);
  virtual bool restart_unit(const std::string& unit);
  virtual bool reload_unit(const std::string& unit);

  /// What the four above do, with a job mode of your choice. False for an action that is none of the four.
  bool start_stop_unit(const std::string& unit, UnitAction action, const std::string& mode);

  /// @}

  /// "Systemd::ACTIVE_STATE_ACTIVE" and the like; empty for a value that is none of the enumeration's. Do not pass
  /// such values from two threads at once.
  std::string to_str(ActiveState state);
  std::string to_str(InstallState state);  ///< likewise

  /// @name The bus
  /// One call each, to the D-Bus destination `service`; empty where it fails.
  /// @{

  /// The object path of a unit, by the method LoadUnit.
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
