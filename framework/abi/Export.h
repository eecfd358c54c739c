// Marks what libhostframework.so offers to its users; everything else in it stays hidden.
#ifndef FRAMEWORK_ABI_EXPORT_H
#define FRAMEWORK_ABI_EXPORT_H

#define HOSTFRAMEWORK_API __attribute__((visibility("default")))

#endif
