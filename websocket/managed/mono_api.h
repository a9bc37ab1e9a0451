// mono_api.h - the functions of the Mono embedding interface that we use, resolved by name.
// Declared here, so that building needs nothing of Mono.
#pragma once

#include <cstdint>

namespace pennywort::websocket {

struct MonoArray;
struct MonoAssembly;
struct MonoClass;
struct MonoDomain;
struct MonoImage;
struct MonoMethod;
struct MonoObject;
struct MonoString;
struct MonoThread;

// One line for each: its result, its name behind "mono_", its arguments.
#define PENNYWORT_MONO_FUNCTIONS(X)                                                           \
    X(MonoDomain*, jit_init_version, (const char* name, const char* version))                 \
    X(MonoDomain*, get_root_domain, ())                                                       \
    X(MonoDomain*, domain_get, ())                                                            \
    X(void, set_dirs, (const char* assemblies, const char* settings))                         \
    X(void, config_parse, (const char* file))                                                 \
    X(void, set_signal_chaining, (std::int32_t chains))                                       \
    X(MonoThread*, thread_attach, (MonoDomain * domain))                                      \
    X(MonoAssembly*, domain_assembly_open, (MonoDomain * domain, const char* path))           \
    X(MonoImage*, image_open_from_data,                                                       \
      (char* data, std::uint32_t size, std::int32_t copies, std::int32_t* status))            \
    X(MonoAssembly*, assembly_load_from,                                                      \
      (MonoImage * image, const char* name, std::int32_t* status))                            \
    X(MonoClass*, class_from_name, (MonoImage * image, const char* space, const char* name))  \
    X(MonoMethod*, class_get_method_from_name, (MonoClass * of, const char* name, int count)) \
    X(MonoObject*, runtime_invoke,                                                            \
      (MonoMethod * what, void* object, void** arguments, MonoObject** exception))            \
    X(MonoString*, string_new_len, (MonoDomain * domain, const char* text, unsigned size))    \
    X(char*, string_to_utf8, (MonoString * text))                                             \
    X(void, free, (void* memory))                                                             \
    X(MonoClass*, get_byte_class, ())                                                         \
    X(MonoArray*, array_new, (MonoDomain * domain, MonoClass * of, std::uintptr_t count))     \
    X(char*, array_addr_with_size, (MonoArray * array, int size, std::uintptr_t index))       \
    X(std::uintptr_t, array_length, (MonoArray * array))                                      \
    X(std::uint32_t, gchandle_new, (MonoObject * object, std::int32_t is_pinned))             \
    X(MonoObject*, gchandle_get_target, (std::uint32_t handle))                               \
    X(void, gchandle_free, (std::uint32_t handle))                                            \
    X(void, add_internal_call, (const char* name, const void* function))

struct mono_api {
#define PENNYWORT_MONO_MEMBER(result, name, arguments) result(*name) arguments = nullptr;
    PENNYWORT_MONO_FUNCTIONS(PENNYWORT_MONO_MEMBER)
#undef PENNYWORT_MONO_MEMBER
};

}  // namespace pennywort::websocket
