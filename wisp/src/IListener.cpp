#include <wisp/http/IListener.h>

namespace wisp {
namespace http {

IListener::~IListener() = default;

}  // namespace http
}  // namespace wisp
