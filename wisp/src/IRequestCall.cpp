#include <wisp/http/IRequestCall.h>

namespace wisp {
namespace http {

IRequestCall::~IRequestCall() = default;

}  // namespace http
}  // namespace wisp
