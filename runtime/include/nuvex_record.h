/*
 * nuvex_record: turns a field list into a C record and its initialisers.
 *
 * A field list is a function-like macro FIELDS(X, rec) that calls
 * X(rec, KIND, name, ctype) once per member in declaration order; a member's
 * field number is its position in that list, counted from 1. The same list
 * drives the C++ codec, so a record's layout and its wire form cannot drift
 * apart.
 *
 * Record layout: the members in order (a repeated member is a pointer to its
 * elements followed by an unsigned int _<name>_count), then one 1-bit
 * presence flag _have_<name> per member, in the same order.
 */
#ifndef NUVEX_RECORD_H
#define NUVEX_RECORD_H

#include <string.h>

#include "nuvex.h"

/* An enumeration from its constant list CONSTANTS(C), which calls
 * C(NAME, value) once per constant. */
#define NUVEX_ENUM_CONSTANT(name, value) name = value,
#define NUVEX_DECLARE_ENUM(ename, CONSTANTS) \
    enum ename NUVEX_ENUM_BASE { CONSTANTS(NUVEX_ENUM_CONSTANT) };

/* Member declarations, one per kind. */
#define NUVEX_DECL_UINT32(name, ctype) ctype _##name;
#define NUVEX_DECL_ENUM(name, ctype) ctype _##name;
#define NUVEX_DECL_BOOL(name, ctype) ctype _##name;
#define NUVEX_DECL_INT32(name, ctype) ctype _##name;
#define NUVEX_DECL_UINT64(name, ctype) ctype _##name;
#define NUVEX_DECL_STRING(name, ctype) ctype _##name;
#define NUVEX_DECL_BYTES(name, ctype) ctype _##name;
#define NUVEX_DECL_EID(name, ctype) ctype _##name;
#define NUVEX_DECL_MESSAGE(name, ctype) ctype _##name;
#define NUVEX_DECL_REP_UINT32(name, ctype) const ctype *_##name; unsigned int _##name##_count;
#define NUVEX_DECL_REP_INT32(name, ctype) const ctype *_##name; unsigned int _##name##_count;
#define NUVEX_DECL_REP_UINT64(name, ctype) const ctype *_##name; unsigned int _##name##_count;
#define NUVEX_DECL_REP_STRING(name, ctype) const ctype *_##name; unsigned int _##name##_count;
#define NUVEX_DECL_REP_BYTES(name, ctype) const ctype *_##name; unsigned int _##name##_count;
#define NUVEX_DECL_REP_MESSAGE(name, ctype) const ctype *_##name; unsigned int _##name##_count;

#define NUVEX_MEMBER_DECL(rec, KIND, name, ctype) NUVEX_DECL_##KIND(name, ctype)
#define NUVEX_FLAG_DECL(rec, KIND, name, ctype) mivo_bool_t _have_##name : 1;

#define NUVEX_DECLARE_RECORD(rec, FIELDS) \
    struct rec {                          \
        FIELDS(NUVEX_MEMBER_DECL, rec)    \
        FIELDS(NUVEX_FLAG_DECL, rec)      \
    };

/* Member defaults, one per kind: zero, false, null, empty. */
#define NUVEX_INIT_UINT32(dest_p, name) (dest_p)->_##name = 0;
#define NUVEX_INIT_ENUM(dest_p, name) memset(&(dest_p)->_##name, 0, sizeof (dest_p)->_##name);
#define NUVEX_INIT_BOOL(dest_p, name) (dest_p)->_##name = 0;
#define NUVEX_INIT_INT32(dest_p, name) (dest_p)->_##name = 0;
#define NUVEX_INIT_UINT64(dest_p, name) (dest_p)->_##name = 0;
#define NUVEX_INIT_STRING(dest_p, name) (dest_p)->_##name = NULL;
#define NUVEX_INIT_BYTES(dest_p, name) (dest_p)->_##name.data = NULL; (dest_p)->_##name.size = 0;
#define NUVEX_INIT_EID(dest_p, name) mivo_tesk_eid_st_init(&(dest_p)->_##name);
#define NUVEX_INIT_MESSAGE(dest_p, name) memset(&(dest_p)->_##name, 0, sizeof (dest_p)->_##name);
#define NUVEX_INIT_REPEATED(dest_p, name) (dest_p)->_##name = NULL; (dest_p)->_##name##_count = 0;
#define NUVEX_INIT_REP_UINT32 NUVEX_INIT_REPEATED
#define NUVEX_INIT_REP_INT32 NUVEX_INIT_REPEATED
#define NUVEX_INIT_REP_UINT64 NUVEX_INIT_REPEATED
#define NUVEX_INIT_REP_STRING NUVEX_INIT_REPEATED
#define NUVEX_INIT_REP_BYTES NUVEX_INIT_REPEATED
#define NUVEX_INIT_REP_MESSAGE NUVEX_INIT_REPEATED

/* rec_init_<name>: resets one member and clears its flag, nothing else. */
#define NUVEX_MEMBER_INIT_FN(rec, KIND, name, ctype)               \
    static inline void rec##_init_##name(struct rec *dest_p)      \
    {                                                              \
        NUVEX_INIT_##KIND(dest_p, name)                            \
        dest_p->_have_##name = 0;                                  \
    }
#define NUVEX_MEMBER_INIT_CALL(rec, KIND, name, ctype) rec##_init_##name(dest_p);

/* rec_init: every member initialiser in declaration order. It never
 * releases anything: release an owned record before resetting it. */
#define NUVEX_DEFINE_INITIALISERS(rec, FIELDS)                 \
    FIELDS(NUVEX_MEMBER_INIT_FN, rec)                          \
    static inline void rec##_init(struct rec *dest_p)          \
    {                                                          \
        FIELDS(NUVEX_MEMBER_INIT_CALL, rec)                    \
    }

#endif /* NUVEX_RECORD_H */
