// Services that keep files open which are on their way.
#pragma once

// A service that rests meanwhile, and runs again at the end, whatever happened.
class ServicePause {
 public:
  struct Service {
    const char16_t* name;
    void (*start)();
  };
  // Windows Media network sharing, which keeps files of profiles open. Left alone at the end if it runs by then.
  static const Service kMediaSharing;
  // The product's own, which may hold redirected files. The log tells when it cannot be started.
  static const Service kQuillbay;

  explicit ServicePause(const Service& service) : service_(service) {}
  ~ServicePause() { End(); }
  ServicePause(const ServicePause&) = delete;
  ServicePause& operator=(const ServicePause&) = delete;

  // Stops the service if it runs.
  void Begin();
  // The same for one that is not stopped here, but by what follows.
  void Expect();
  // Starts it if it ran at the beginning.
  void End();

 private:
  const Service& service_;
  bool wasRunning_ = false;
};
