#!/usr/bin/env bash
# Fails when an include in src/ runs upward or sideways between the library's
# layers: platform, then diag, then config and transfer (beside each other),
# then effect, then com. A folder may include its own headers and those of
# any lower layer.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
declare -A rank=([platform]=0 [diag]=1 [config]=2 [transfer]=2 [effect]=3 [com]=4)
bad=0
while IFS=: read -r file _ text; do
  from=$(cut -d/ -f2 <<<"${file#"$root"/}")
  to=$(sed -E 's/^#include "([a-z]+)\/.*/\1/' <<<"$text")
  [[ -n "${rank[$to]:-}" && "$from" != "$to" ]] || continue
  if ((rank[$to] >= rank[$from])); then
    echo "check-layers: ${file#"$root"/} includes $to/ ($text), which is not below $from/" >&2
    bad=1
  fi
done < <(grep -rn --include='*.h' --include='*.cpp' -E '^#include "[a-z]+/' "$root/src")
[[ $bad -eq 0 ]] || exit 1
echo "check-layers: every include in src/ runs downward (platform < diag < config, transfer < effect < com)"
