#pragma once

namespace services {

// The codes of the service's errors. The program tells only a stop apart; the others are for logs.
constexpr int kBadParamsCode = 1001;
constexpr int kStoppedCode = 1002;
constexpr int kNotFoundCode = 1003;
constexpr int kBusyCode = 1004;
constexpr int kIoCode = 1005;
constexpr int kNoSpaceCode = 1006;
constexpr int kUnsupportedCode = 1007;

} // namespace services
