// Tests without a bus how an application uses Systemd: derive from it and override the members that use the bus.
#include <ipc/systemd.h>

#include <iostream>
#include <string>
#include <vector>

using ecu::vorn::ipc::Systemd;

namespace {

// The application's code. It takes a Systemd&, so that a test can pass a derived class.
bool shut_down_media(Systemd& systemd) {
  systemd.stop_target_services("media");
  return systemd.are_target_services_stopped("media");
}

class FakeSystemd : public Systemd {
 public:
  std::vector<std::string> list_unit_dependencies(const std::string&, const std::string&) override {
    return {"player.service", "bluetooth.socket", "radio.service"};
  }
  ActiveState get_unit_activestate(const std::string& unit) override {
    return unit == stubborn ? ACTIVE_STATE_DEACTIVATING : ACTIVE_STATE_INACTIVE;
  }
  bool stop_unit(const std::string& unit) override {
    stopped.push_back(unit);
    return true;
  }

  std::string stubborn;
  std::vector<std::string> stopped;
};

}  // namespace

int main() {
  FakeSystemd fake;
  const bool all_stop = shut_down_media(fake);
  const bool only_services = fake.stopped == std::vector<std::string>{"player.service", "radio.service"};
  fake.stubborn = "radio.service";
  const bool notices_one = !shut_down_media(fake);

  std::cout << "all stopped: " << all_stop << ", only services: " << only_services
            << ", a running one is noticed: " << notices_one << std::endl;
  return all_stop && only_services && notices_one ? 0 : 1;
}
