#include "sorvctl/CompletionScripts.h"

namespace sorvctl {

const std::string_view kBashCompletion =
    R"(# Completion of sorvctl for bash: source <(sorvctl completion bash)
_sorvctl() {
  local candidate
  COMPREPLY=()
  while IFS= read -r candidate; do
    COMPREPLY+=("$candidate")
  done < <("${COMP_WORDS[0]}" completion bash -- "${COMP_LINE:0:COMP_POINT}" "$COMP_WORDBREAKS" 2>/dev/null)
}
complete -o default -F _sorvctl sorvctl
)";

const std::string_view kZshCompletion = R"(#compdef sorvctl
# Completion of sorvctl for zsh: source <(sorvctl completion zsh), or as the file _sorvctl in a folder of $fpath
_sorvctl() {
  local line tab=$'\t'
  local -a values shown
  for line in "${(@f)$("${(Q)words[1]}" completion zsh -- "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)}"; do
    [[ -n $line ]] || continue
    values+=("${line%%$tab*}")
    shown+=("${line/$tab/  -- }")
  done
  if (( $#values )); then
    compadd -l -d shown -a values
  else
    _default
  fi
}
if [[ ${funcstack[1]} == _sorvctl ]]; then
  _sorvctl "$@"
else
  compdef _sorvctl sorvctl
fi
)";

const std::string_view kFishCompletion =
    R"(# Completion of sorvctl for fish: sorvctl completion fish | source
function __sorvctl_candidates
    set -l words (commandline -opc)
    set -l current (string unescape -- (commandline -ct))
    or set current (commandline -ct)
    set -l candidates ($words[1] completion fish -- $words[2..-1] "$current" 2>/dev/null)
    if set -q candidates[1]
        string join \n -- $candidates
    else
        __fish_complete_path (commandline -ct)
    end
end
complete -c sorvctl -f -a '(__sorvctl_candidates)'
)";

}  // namespace sorvctl
