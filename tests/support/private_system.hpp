// A file system in which a test may own /etc, /run and /dev.
#ifndef SORREL_TESTS_PRIVATE_SYSTEM_HPP
#define SORREL_TESTS_PRIVATE_SYSTEM_HPP

// Gives the calling process, and the children that it starts from now on, an empty /etc, an empty /run (which is
// /var/run) and a /dev that holds nothing but null, zero, full, random, urandom and the names of the standard streams.
// Nobody else sees any of it, and it is gone when the process ends; everything else, /tmp and /proc too, is the
// system's own. Works for root, and for others where the kernel lets them make user namespaces.
//
// Call it once, before any thread is started. Throws std::system_error, which fails the calling test, when the kernel
// refuses.
void enterPrivateSystem();

#endif // SORREL_TESTS_PRIVATE_SYSTEM_HPP
