#include "client/Changes.h"

#include <utility>

#include "client/Page.h"

namespace sorvane::client::detail {
namespace {

// A registry that is full has some hundreds of pages; one that changes meanwhile has some more.
constexpr int kMostPages = 10000;

}  // namespace

Result<void> Changes::bring(Picture& picture, Connection& connection) {
  auto brought = bringByPages(picture, connection);
  if (brought || brought.error().code != ErrorCode::unsupported) {
    return brought;
  }
  sequence_.clear();
  auto list = listByNames(connection);
  return list ? picture.applyAll(std::move(*list)) : list.error();
}

Result<void> Changes::bringByPages(Picture& picture, Connection& connection) {
  for (int count = 0; count < kMostPages; ++count) {
    Request request = Request::action("portChanges").with("limit", "10000");
    if (!sequence_.empty()) {
      request.with("instance", instance_).with("since", sequence_);
    }
    const auto reply = connection.ask(request);
    if (!reply) {
      return reply.error();
    }
    auto page = readPage(*reply);
    if (!page) {
      return page.error();
    }
    const bool more = page->more;
    instance_ = page->instance;
    sequence_ = page->sequence;
    if (auto applied = picture.apply(std::move(*page)); !applied) {
      sequence_.clear();  // a part of the page is missing
      return applied;
    }
    if (!more) {
      return {};
    }
  }
  return Error{ErrorCode::protocol, "the name server's list of changes has no end"};
}

}  // namespace sorvane::client::detail
