#define FUSE_USE_VERSION 31
#include <cuse_lowlevel.h>
#include <fcntl.h>
#include <fuse_lowlevel.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "channel.h"
#include "descriptor.h"
#include "link.h"
#include "port.h"
#include "stop_request.h"

// A character device in user space. The kernel passes each read, write and poll as a request. The channel keeps
// those that must wait, so that one thread serves any number of readers and writers.
namespace keltipc {
namespace {

struct DestroyHandle {
  void operator()(fuse_pollhandle* handle) const { fuse_pollhandle_destroy(handle); }
};

/// The device behind the session; the operations below get it as their user data.
struct Device {
  Device(MessageQueue& queue, std::size_t frame_size) : channel(queue, frame_size, [this] { wake_pollers(); }) {}
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  /// Each handle is used once: a poll that still has to wait sends a new request with a new handle.
  void wake_pollers() {
    for (const auto& [file, handle] : pollers) fuse_lowlevel_notify_poll(handle.get());
    pollers.clear();
  }

  /// To be called while the session still exists, which the answers need.
  void end() {
    channel.end(ENODEV);
    pollers.clear();
  }

  /// libfuse holds locks while it calls note_interrupt, so the interrupted requests are answered here, afterwards.
  void interrupt_noted() {
    for (const fuse_req_t request : std::exchange(interrupted, {})) channel.interrupt(request);
  }

  Channel channel;
  /// One handle for each open file: all polls of a file wait on the same one in the kernel.
  std::map<std::uint64_t, std::unique_ptr<fuse_pollhandle, DestroyHandle>> pollers;
  std::vector<fuse_req_t> interrupted;
  std::uint64_t next_file = 1;
  bool is_set_up = false;
};

Device& device_of(fuse_req_t request) { return *static_cast<Device*>(fuse_req_userdata(request)); }

void note_interrupt(fuse_req_t request, void* device) {
  static_cast<Device*>(device)->interrupted.push_back(request);
}

bool may_wait(const fuse_file_info* file) { return (file->flags & O_NONBLOCK) == 0; }

void on_init_done(void* device) { static_cast<Device*>(device)->is_set_up = true; }

void on_open(fuse_req_t request, fuse_file_info* file) {
  file->fh = device_of(request).next_file++;
  fuse_reply_open(request, file);
}

void on_release(fuse_req_t request, fuse_file_info* file) {
  device_of(request).pollers.erase(file->fh);
  fuse_reply_err(request, 0);
}

void on_read(fuse_req_t request, std::size_t size, off_t /*offset*/, fuse_file_info* file) {
  Device& device = device_of(request);
  fuse_req_interrupt_func(request, note_interrupt, &device);
  device.channel.read(request, size, may_wait(file), [request](int error, const std::string& message) {
    error != 0 ? fuse_reply_err(request, error) : fuse_reply_buf(request, message.data(), message.size());
  });
}

void on_write(fuse_req_t request, const char* bytes, std::size_t size, off_t /*offset*/, fuse_file_info* file) {
  Device& device = device_of(request);
  fuse_req_interrupt_func(request, note_interrupt, &device);
  device.channel.write(request, std::string(bytes, size), may_wait(file), [request](int error, std::size_t written) {
    error != 0 ? fuse_reply_err(request, error) : fuse_reply_write(request, written);
  });
}

void on_poll(fuse_req_t request, fuse_file_info* file, fuse_pollhandle* handle) {
  Device& device = device_of(request);
  if (handle != nullptr) device.pollers[file->fh].reset(handle);
  fuse_reply_poll(request, device.channel.events());
}

constexpr cuse_lowlevel_ops operations() {
  cuse_lowlevel_ops made{};
  made.init_done = on_init_done;
  made.open = on_open;
  made.read = on_read;
  made.write = on_write;
  made.release = on_release;
  made.poll = on_poll;
  return made;
}

using Session = std::unique_ptr<fuse_session, decltype(&cuse_lowlevel_teardown)>;

Session open_session(const std::string& name, Device& device) {
  static const cuse_lowlevel_ops ops = operations();
  const std::string device_name = "DEVNAME=" + name;
  std::array<const char*, 1> info_arguments{device_name.c_str()};
  cuse_info info{};
  info.dev_info_argc = static_cast<unsigned int>(info_arguments.size());
  info.dev_info_argv = info_arguments.data();

  std::string program = "keltipc-portsim";
  std::string foreground = "-f";
  std::string one_thread = "-s";
  std::array<char*, 4> arguments{program.data(), foreground.data(), one_thread.data(), nullptr};
  int multithreaded = 0;
  Session session(cuse_lowlevel_setup(3, arguments.data(), &info, &ops, &multithreaded, &device),
                  cuse_lowlevel_teardown);
  if (session == nullptr) throw std::runtime_error("cannot use /dev/cuse: needs root, and 'modprobe cuse'");
  return session;
}

/// The buffer for requests. libfuse allocates it, a megabyte, for the first one.
struct Buffer : fuse_buf {
  Buffer() : fuse_buf{} {}
  ~Buffer() { std::free(mem); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
};

/// One request from the kernel. Throws when the kernel has ended the session.
void handle_request(fuse_session* session, Device& device, Buffer& buffer) {
  const int got = fuse_session_receive_buf(session, &buffer);
  if (got == -EINTR || got == -EAGAIN) return;
  if (got > 0) fuse_session_process_buf(session, &buffer);
  if (got <= 0 || fuse_session_exited(session) != 0) throw std::runtime_error("the kernel has ended the device");
  device.interrupt_noted();
}

/// The device node. Makes it where devtmpfs has not, and removes it in either case.
class Node {
 public:
  Node(const std::string& name, mode_t mode) : path("/dev/" + name), number(read_number(name)) {
    struct stat record {};
    const bool is_there = ::stat(path.c_str(), &record) == 0 || ::mknod(path.c_str(), S_IFCHR | 0600, number) == 0;
    if (is_there && (mode == 0 || ::chmod(path.c_str(), mode) == 0)) return;
    throw std::runtime_error("cannot make '" + path + "': " + std::strerror(errno));
  }
  ~Node() {
    struct stat record {};
    if (::lstat(path.c_str(), &record) == 0 && S_ISCHR(record.st_mode) && record.st_rdev == number) {
      ::unlink(path.c_str());
    }
  }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

 private:
  static dev_t read_number(const std::string& name) {
    unsigned int major_number = 0;
    unsigned int minor_number = 0;
    char colon = 0;
    std::ifstream("/sys/class/cuse/" + name + "/dev") >> major_number >> colon >> minor_number;
    if (colon != ':') throw std::runtime_error("the kernel knows no device '" + name + "'");
    return makedev(major_number, minor_number);
  }

  std::string path;
  dev_t number;
};

/// The kernel refuses a second device of the same name, but libfuse does not report that.
void require_free_name(const std::string& name) {
  if (::access(("/sys/class/cuse/" + name).c_str(), F_OK) != 0) return;
  throw std::runtime_error("a device named '" + name + "' exists already");
}

bool is_plain_name(const std::string& name) {
  const auto is_plain = [](unsigned char c) { return std::isalnum(c) != 0 || std::strchr("._-", c) != nullptr; };
  return !name.empty() && std::all_of(name.begin(), name.end(), is_plain);
}

/// "/dev/qport0" is the device qport0; a path elsewhere becomes a link to a device with a name of its own.
std::string device_name(const std::filesystem::path& place) {
  if (place.parent_path() == "/dev" && is_plain_name(place.filename())) return place.filename();
  return "keltipc-portsim-" + std::to_string(::getpid());
}

void serve_until_stopped(fuse_session* session, Device& device, Buffer& buffer, const MessageQueue& queue) {
  while (!queue.has_hung_up()) {
    // Before `serve`, so that no message becomes readable unnoticed in between.
    const int timeout = queue.ms_to_readable();
    device.channel.serve();
    std::array<pollfd, 2> watched{{{fuse_session_fd(session), POLLIN, 0}, {stop_descriptor(), 0, 0}}};
    if (::poll(watched.data(), watched.size(), timeout) < 0 && errno != EINTR) {
      throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
    }
    if (watched[1].revents != 0) return;
    if (watched[0].revents != 0) handle_request(session, device, buffer);
  }
}

}  // namespace

void run_cuse_port(const SimulatedPort& port, MessageQueue& queue, const std::function<void(const char*)>& ready) {
  // Absolute, since libfuse changes the working folder when it sets a session up.
  const std::filesystem::path path = std::filesystem::absolute(port.path).lexically_normal();
  const std::string name = device_name(path);
  require_free_name(name);
  Device device(queue, port.frame_size);
  Buffer buffer;
  const Session session = open_session(name, device);
  while (!device.is_set_up) handle_request(session.get(), device, buffer);
  // If the kernel withdraws a request between poll and read, a blocking read would delay the stop signals.
  ::fcntl(fuse_session_fd(session.get()), F_SETFL, O_NONBLOCK);
  const Node node(name, port.mode);
  std::unique_ptr<Link> link;
  if (path != "/dev/" + name) link = std::make_unique<Link>("/dev/" + name, path);
  ready("a CUSE device");
  serve_until_stopped(session.get(), device, buffer, queue);
  device.end();
}

}  // namespace keltipc
