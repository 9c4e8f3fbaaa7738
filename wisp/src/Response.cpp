#include <wisp/http/Response.h>

#include <utility>

namespace wisp {
namespace http {

Response::Response(Fields fields) : fields_(std::move(fields)) {}

}  // namespace http
}  // namespace wisp
