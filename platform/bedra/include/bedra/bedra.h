/* All of Bedra. */
#ifndef BEDRA_BEDRA_H
#define BEDRA_BEDRA_H

#include <bedra/allocator.h>
#include <bedra/array.h>
#include <bedra/base.h>
#include <bedra/data.h>
#include <bedra/dictionary.h>
#include <bedra/log.h>
#include <bedra/notification_center.h>
#include <bedra/number.h>
#include <bedra/property_list.h>
#include <bedra/run_loop.h>
#include <bedra/runtime.h>
#include <bedra/set.h>
#include <bedra/string.h>
#include <bedra/time.h>
#include <bedra/timer_source.h>
#include <bedra/weak_reference.h>
#include <bedra/work_queue.h>

#endif
