// The process's proxy settings: which proxy a connection to a URL goes through, and the credentials
// for each proxy. One store per process, safe for use from any thread.
//
// Sources, the first that has an answer wins: the list the application set (SetProxyList), then the
// environment read by InitProxy (https_proxy, http_proxy, all_proxy, no_proxy, in lower or upper case).
// Loopback hosts ("localhost", 127.0.0.0/8, ::1) always go direct.
#pragma once

#include <cstdint>

#include "tp/CmDefines.h"
#include "tp/CmString.h"

// Starts the store, or reloads the environment when started already. With readEnvironment == 0
// the environment is ignored (only SetProxyList applies).
CmResult InitProxy(int readEnvironment);
// Forgets everything: lists, environment, credentials, the notification callback.
CmResult UnInitProxy();

// The proxy for `url` ("scheme://[user@]host[:port]/path", or a bare host) as "host:port" (IPv6
// hosts in brackets); empty text means a direct connection. CM_ERROR_INVALID_ARG when the URL has
// no host. ws/wss use the http/https entries.
CmResult GetProxyConfig(const CCmString& url, CCmString& proxy);

// proxyList: entries separated by ';', ',' or blanks, each "host:port" (any scheme) or
// "scheme=host:port" (http, https, socks...), e.g. "https=proxy:8443;proxy:3128". A port is required.
// bypassList: hosts that go direct, separated the same way: "name" (exact), ".suffix" or "*.suffix"
// (the domain and below), "*" (everything), "<local>" (names without a dot).
// Replaces the previous list; two empty texts clear it. A malformed entry refuses the whole call
// with CM_ERROR_INVALID_ARG and keeps the previous list.
CmResult SetProxyList(const CCmString& proxyList, const CCmString& bypassList);

// Credentials for the proxy at host:port; an empty user removes them.
CmResult SetProxyUsernameAndPassword(const CCmString& host, uint16_t port, const CCmString& user,
                                     const CCmString& password);
// CM_ERROR_NOT_FOUND when none are stored; then, if asking the application is allowed
// (SetGetAuthFromUpper(true), the default) and a callback is registered, the callback hears
// CM_PROXY_CREDENTIAL_NEEDED with "host:port", outside any lock; the answer comes back later through
// SetProxyUsernameAndPassword.
CmResult GetProxyUsernameAndPassword(const CCmString& host, uint16_t port, CCmString& user, CCmString& password);

constexpr int CM_PROXY_CREDENTIAL_NEEDED = 2;
using CmProxyNotificationFn = void (*)(int type, const char* description);
// Null removes the callback.
void RegisterProxyNotifaction(CmProxyNotificationFn callback);
// Whether missing credentials may be asked of the application.
void SetGetAuthFromUpper(bool allowed);
