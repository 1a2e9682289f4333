// When the program was built, for its banner.
#ifndef FLOWLANE_BUILDTIME_H
#define FLOWLANE_BUILDTIME_H

namespace flowlane {

// For example "Nov 14 2022" and "10:28:12", of the compiler's clock, or of SOURCE_DATE_EPOCH when the build
// sets it. The texts live as long as the program.
const char* BuildDate() noexcept;
const char* BuildTimeOfDay() noexcept;

} // namespace flowlane

#endif
