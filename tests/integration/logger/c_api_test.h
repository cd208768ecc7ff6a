/* What the tests let a C program do. */
#ifndef SORREL_TESTS_C_API_TEST_H
#define SORREL_TESTS_C_API_TEST_H

#include <sorrel/sorrel.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A component "net" of the mask of `level`. */
sorrel_component* createFromC(sorrel_level* level);

/* A traced function "connect" of the thread "c", with one message, one by way of syslog, and one line of a dump. */
void logFromC(sorrel_component* component);

/* The level of the union of SR_ERR, SR_WARN and SR_DEBUG. */
sorrel_level* combineFromC(void);

/* The predefined levels and functions give what they give in C++: 0, or the number of the line that found a difference.
 */
int checkLevelsFromC(void);

/* Names the application on both loggers; the results of the functions. */
struct namesFromC {
    const char* configured;
    const char* plain;
};
struct namesFromC nameFromC(const char* configured, const char* plain);

#ifdef __cplusplus
} /* extern "C" */
#endif
#endif /* SORREL_TESTS_C_API_TEST_H */
