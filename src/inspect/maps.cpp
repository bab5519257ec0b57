#include "inspect/maps.h"

#include "inspect/maps_parse.h"
#include "inspect/start_time.h"
#include "inspect/vma_desc.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "report/log.h"

std::optional<int32_t> tw_maps_parse(int pid, LineReader& lines, tw_process_desc* desc) {
  vma_division_t divisions[VMA_DIVISION_COUNT] = {};
  int32_t areas = 0;
  vma_desc_t vma;
  for (std::string_view line; !(line = lines.next()).empty();) {
    const int conversions = parse_vma(line, &vma);
    if (!is_vma_header(conversions)) {
      TW_LOG(TW_TAG_STATS, "-> failed to parse \"%s\" of proc %u as a vma's beginning: %d\n",
             lines.c_str(), static_cast<unsigned>(pid), conversions);
      return std::nullopt;
    }
    ++areas;
    vma_division_t* division = match_vma_division(divisions, vma);
    division->vss_kb += vma.size_kb;
    ++division->vma_count;
  }
  desc->vss_dalvik_kb = divisions[VMA_DIVISION_DALVIK].vss_kb;
  desc->vss_heap_kb = divisions[VMA_DIVISION_SCUDO_PRIMARY].vss_kb +
                      divisions[VMA_DIVISION_SCUDO_SECONDARY].vss_kb +
                      divisions[VMA_DIVISION_JEMALLOC].vss_kb;
  desc->vss_ashmem_kb = divisions[VMA_DIVISION_ASHMEM].vss_kb;
  desc->vss_kgsl_kb = divisions[VMA_DIVISION_KGSL].vss_kb;
  desc->vss_dmabuf_kb = divisions[VMA_DIVISION_DMABUF].vss_kb;
  return areas;
}

bool tw_process_read_maps(int pid, tw_process_desc* desc, int32_t* areas) {
  const auto asked = static_cast<unsigned>(pid);
  *areas = 0;
  if (tw_is_spared(asked, tw_read_start_time)) {
    return false;
  }
  const ReadingMark mark(TASKWARDEN_READS_MAPS, asked);
  LineReader lines = LineReader::open(ProcPath(asked, "/maps").c_str(), LineReader::kMostOfAreas);
  if (!lines.ok()) {
    TW_LOG(TW_TAG_STATS, ">> failed to open proc %u's maps!!\n", asked);
    return false;
  }
  const std::optional<int32_t> parsed = tw_maps_parse(pid, lines, desc);
  *areas = parsed.value_or(0);
  return parsed.has_value() && !lines.failed();
}

int32_t tw_process_check_maps(int pid, tw_process_desc* desc) {
  int32_t areas;
  tw_process_read_maps(pid, desc, &areas);
  return areas;
}
