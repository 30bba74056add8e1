// What the platform libraries export: the declarations of the public headers, between these two
// marks. The libraries are built with hidden visibility, so everything else stays inside them.
#ifndef KY_PLATFORM_EXPORT_H
#define KY_PLATFORM_EXPORT_H

#define KY_PLATFORM_EXPORTS_BEGIN _Pragma("GCC visibility push(default)")
#define KY_PLATFORM_EXPORTS_END _Pragma("GCC visibility pop")

#endif
