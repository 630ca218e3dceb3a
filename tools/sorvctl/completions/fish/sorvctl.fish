# Completion of sorvctl for fish: sorvctl completion fish | source
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
