// The product's service, which may hold redirected files open, and its part in the redirection of files.
#pragma once

// Keeps the service stopped for as long as a file is on its way.
class ServicePause {
 public:
  ServicePause() = default;
  // A service that was stopped here runs again, whatever happened.
  ~ServicePause() { End(); }
  ServicePause(const ServicePause&) = delete;
  ServicePause& operator=(const ServicePause&) = delete;

  // Stops the service if it runs.
  void Begin();
  // Starts it again if it was stopped; the log tells when that fails.
  void End();

 private:
  bool wasRunning_ = false;
};

// Once neither registry keys nor files are redirected, the service has nothing to do: it is stopped and starts by hand
// only. Logs both settings.
void StopServiceWithoutWork();
