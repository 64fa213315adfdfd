# Google Benchmark's results as rows, tab-separated:
# figure, baseline, library's ns, ratio (median, lowest, highest), goal, baseline's ns
[.benchmarks[] | select(.run_type == "aggregate")]
| group_by(.family_index)[]
| (map({key: .aggregate_name, value: .}) | from_entries) as $of
| ($of.median.run_name | sub("/(iterations|min_time|repeats|manual_time).*"; "") | split("/")) as $name
| (if $name | length == 3 then [$name | join("/"), "the bare calls"] else $name end)
  + [$of.median.library_ns, $of.median.ratio, $of.lowest.ratio, $of.highest.ratio, $of.median.goal, $of.median.baseline_ns]
| @tsv
