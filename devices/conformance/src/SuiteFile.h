#pragma once

// Each suite file of the kit ends with ZGU_CONFORMANCE_SUITE_FILE(<its file
// name>). RegisterDevice touches every such mark, so a static link keeps
// every suite file (and its tests) in a program that registers a device;
// the list of marks is made from the suite files by the build.

#define ZGU_CONFORMANCE_SUITE_FILE(Name)                                                                          \
    namespace Zorvan::Rendering::Conformance::SuiteFiles {                                                        \
    extern int const Name;                                                                                        \
    int const Name = 1;                                                                                           \
    }
