// An ordered list of HTTP header fields. Names compare case-insensitively;
// a name may occur more than once (Add keeps every occurrence, in order).
//
// A plain value type: not synchronised; copy it to share it across threads.
#ifndef WISP_HTTP_HEADERS_H_
#define WISP_HTTP_HEADERS_H_

#include <wisp/WispExport.h>

#include <string>
#include <utility>
#include <vector>

namespace wisp {
namespace http {

class WISP_EXPORT Headers {
 public:
  using Field = std::pair<std::string, std::string>;

  // Appends a field. Names and values are sent as given; a name or value with
  // CR or LF in it is refused (returns false) so that a caller's text cannot
  // inject header lines.
  bool Add(const std::string& name, const std::string& value);
  // Replaces every field of that name by one field.
  bool Set(const std::string& name, const std::string& value);
  void Remove(const std::string& name);

  bool Has(const std::string& name) const;
  // Value of the first field of that name, or "" when there is none.
  std::string Get(const std::string& name) const;

  const std::vector<Field>& Fields() const { return fields_; }
  size_t Size() const { return fields_.size(); }
  bool Empty() const { return fields_.empty(); }
  // "Name: value\r\n" per field, in order.
  std::string ToString() const;

 private:
  std::vector<Field> fields_;
};

}  // namespace http
}  // namespace wisp

#endif  // WISP_HTTP_HEADERS_H_
