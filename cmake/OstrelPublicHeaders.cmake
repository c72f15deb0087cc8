# The public headers, shared by the install rules and the API documentation.

# The core's public headers: what users include to call the core, the
# follower and the cache. Internal headers (command dispatch, lock guard) stay
# out; the install check compiles each installed header on its own, so a
# public header that starts to need an internal one is caught there.
set(OSTREL_PUBLIC_HEADERS
  common/OstrelExport.h
  core/OstrelGingaCommonCore.h
  follower/RequestFollower.h
  follower/RequestFollowerItem.h
  cache/Cacher.h
  cache/CacherItem.h)

# The platform libraries' headers are their interface as a whole.
set(OSTREL_PLATFORM_HEADER_DIRS platform/commands platform/tables platform/logger)
