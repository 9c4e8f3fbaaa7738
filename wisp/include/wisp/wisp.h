// The whole public interface of wisp.
#ifndef WISP_WISP_H_
#define WISP_WISP_H_

#include <wisp/Log.h>
#include <wisp/RingBuffer.h>
#include <wisp/http/Error.h>
#include <wisp/http/GaugeUtil.h>
#include <wisp/http/Headers.h>
#include <wisp/http/IListener.h>
#include <wisp/http/IRequestCall.h>
#include <wisp/http/Metrics.h>
#include <wisp/http/Monitor.h>
#include <wisp/http/Options.h>
#include <wisp/http/Range.h>
#include <wisp/http/Response.h>
#include <wisp/http/WispClient.h>

#endif  // WISP_WISP_H_
