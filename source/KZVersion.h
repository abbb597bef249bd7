// The version of the library whose headers these are, as macros for C, C++ and the build.
#ifndef KZCORE_KZVERSION_H
#define KZCORE_KZVERSION_H

// Major, minor and patch: the one place where the version is written. The build reads it from here.
#define KZCORE_VERSION "0.1.0"

// The text that identifies the version of the sources in every report.
#define KZCORE_VERSION_ID "kzcore " KZCORE_VERSION

#endif
