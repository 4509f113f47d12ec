/* A driver in form only: what counts is the version resource that it is linked with. */
long DriverEntry(void) { return 0; }
