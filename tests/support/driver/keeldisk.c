/* A driver in form only: what counts is the version resource that it is linked with. */
long DriverEntry(void* driver, void* registryPath) {
  (void)driver;
  (void)registryPath;
  return 0;
}
