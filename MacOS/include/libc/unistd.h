#pragma once

#include <sys/cdefs.h>
#include <sys/types.h>

__BEGIN_DECLS

uid_t getuid(void);
pid_t getpid(void);

__END_DECLS
