/*
 * The entity identifier's description: its enumerations and its three
 * records, once. Internal to the build, never installed: the public headers
 * mivo_tesk_eid_def.h and mivo_tesk_eid_init.h are written out from these
 * lists by tools/headergen, and libmivo_tesk_eid's engine expands the same
 * lists (src/mivo_tesk_eid_description.hpp). The list format is that of the
 * catalogue (system_pkg/obfl/catalogue/mivo_obfl_mgr_catalogue.h).
 */
#ifndef MIVO_TESK_EID_CATALOGUE_H
#define MIVO_TESK_EID_CATALOGUE_H

/* Each MIVO_TESK_CONSTANTS_<enum>(C) lists its constants as C(NAME, value). */
#define MIVO_TESK_CONSTANTS_entity_type_en(C)                                \
    C(mivo_TESK_ENTITY_TYPE_OTHER, 1)                                        \
    C(mivo_TESK_ENTITY_TYPE_UNKNOWN, 2)                                      \
    C(mivo_TESK_ENTITY_TYPE_CHASSIS, 3)                                      \
    C(mivo_TESK_ENTITY_TYPE_BACKPLANE, 4)                                    \
    C(mivo_TESK_ENTITY_TYPE_CONTAINER, 5)                                    \
    C(mivo_TESK_ENTITY_TYPE_POWERSUPPLY, 6)                                  \
    C(mivo_TESK_ENTITY_TYPE_FAN, 7)                                          \
    C(mivo_TESK_ENTITY_TYPE_SENSOR, 8)                                       \
    C(mivo_TESK_ENTITY_TYPE_MODULE, 9)                                       \
    C(mivo_TESK_ENTITY_TYPE_PORT, 10)                                        \
    C(mivo_TESK_ENTITY_TYPE_STACK, 11)                                       \
    C(mivo_TESK_ENTITY_TYPE_CPU, 12)

/* Sub-type codes are opaque 32-bit numbers to this codec: the platform's
 * inventory owns their meaning, and any value travels unchanged. */
#define MIVO_TESK_CONSTANTS_entity_subtype_en(C)                             \
    C(mivo_TESK_ENTITY_SUBTYPE_UNSPECIFIED, 0)

/* Every enumeration: E(enum name, constant list). */
#define MIVO_TESK_EID_ENUMS(E)                                               \
    E(mivo_tesk_entity_type_en, MIVO_TESK_CONSTANTS_entity_type_en)          \
    E(mivo_tesk_entity_subtype_en, MIVO_TESK_CONSTANTS_entity_subtype_en)

#define MIVO_TESK_FIELDS_entity_subtype_un(X, rec)                           \
    X(rec, ENUM, subtype_other, enum mivo_tesk_entity_subtype_en)            \
    X(rec, ENUM, subtype_unknown, enum mivo_tesk_entity_subtype_en)          \
    X(rec, ENUM, subtype_chassis, enum mivo_tesk_entity_subtype_en)          \
    X(rec, ENUM, subtype_backplane, enum mivo_tesk_entity_subtype_en)        \
    X(rec, ENUM, subtype_container, enum mivo_tesk_entity_subtype_en)        \
    X(rec, ENUM, subtype_power, enum mivo_tesk_entity_subtype_en)            \
    X(rec, ENUM, subtype_fan, enum mivo_tesk_entity_subtype_en)              \
    X(rec, ENUM, subtype_sensor, enum mivo_tesk_entity_subtype_en)           \
    X(rec, ENUM, subtype_module, enum mivo_tesk_entity_subtype_en)           \
    X(rec, ENUM, subtype_port, enum mivo_tesk_entity_subtype_en)             \
    X(rec, ENUM, subtype_stack, enum mivo_tesk_entity_subtype_en)            \
    X(rec, ENUM, subtype_cpu, enum mivo_tesk_entity_subtype_en)

#define MIVO_TESK_FIELDS_entity_tsi_st(X, rec)                               \
    X(rec, ENUM, type, enum mivo_tesk_entity_type_en)                        \
    X(rec, MESSAGE, sub_type, struct mivo_tesk_entity_subtype_un)            \
    X(rec, UINT32, instance, uint32_t)

#define MIVO_TESK_FIELDS_eid_st(X, rec)                                      \
    X(rec, UINT32, version, uint32_t)                                        \
    X(rec, UINT32, rack_num, uint32_t)                                       \
    X(rec, UINT32, slot_num, uint32_t)                                       \
    X(rec, UINT32, inst_num, uint32_t)                                       \
    X(rec, UINT32, num_tsi, uint32_t)                                        \
    X(rec, REP_MESSAGE, tsi, struct mivo_tesk_entity_tsi_st)

/* Every record, nested ones first: M(record name, field list). */
#define MIVO_TESK_EID_RECORDS(M)                                             \
    M(mivo_tesk_entity_subtype_un, MIVO_TESK_FIELDS_entity_subtype_un)       \
    M(mivo_tesk_entity_tsi_st, MIVO_TESK_FIELDS_entity_tsi_st)               \
    M(mivo_tesk_eid_st, MIVO_TESK_FIELDS_eid_st)

#endif /* MIVO_TESK_EID_CATALOGUE_H */
