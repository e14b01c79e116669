/* The revision record the module image fills in qkvercn1: which release it
 * is, built when and for what.  Plain C, shared by the host interface
 * (module/host_api.h) and the C header of the exported surface
 * (module/qorfmsm.h). */
#pragma once

typedef struct QKS_Version_Info {
  const char* portdate;
  const char* track_lookthrough;
  const char* track_additional;
  long build_epoch;
  const char* product_name;
  const char* script_name;
  const char* script_dvd;
  const char* script_loc;
  const char* maintenance;
  const char* version;
  const char* os_version;
  const char* hotfix;
  const char* hotfix_Install;
  const char* description;
  const char* description_Install;
  const char* environment;
  const char* build_time;
  long prodid;
  void* spare[8];
} QKS_Version_Info;
