# fish completion for corvanectl and corvane-headless.
# Scripts/completions writes corvane.fish from corvane.fish.in and the list.

# Prints what can come behind the words in $argv[1], each with what it is; fails when nothing can.
function __corvane_next
    switch $argv[1]
        case 'corvanectl'
            printf '%s\n' \
                'list	Every workspace; * marks the active one' \
                'current	The active workspace\'s name' \
                'switch	Switch to a workspace, by name, the start of it, or - for the previous' \
                'launch	Open a workspace\'s apps and apply its layout' \
                'stop	End a workspace\'s terminal commands, close its windows, quit its apps' \
                'subscribe	The active workspace, then each change, as JSON lines' \
                'notify	Mark the workspace of a folder as waiting for you' \
                'help	This help' \
                'version	The version of Corvane this command came with'
        case 'corvanectl list'
            printf '%s\n' \
                '--json	The whole answer, as a line of JSON'
        case 'corvanectl current'
            printf '%s\n' \
                '--json	The whole answer, as a line of JSON'
        case 'corvanectl switch'
            printf '%s\n' \
                '@workspace'
        case 'corvanectl launch'
            printf '%s\n' \
                '@workspace'
        case 'corvanectl stop'
            printf '%s\n' \
                '@workspace'
        case 'corvanectl notify'
            printf '%s\n' \
                '--agent	claude, codex or cursor: reads the agent\'s hook input' \
                '--kind	needs-input (the default) or done' \
                '--cwd	The agent\'s folder (default: the current one)' \
                '--message	Shown with the mark'
        case 'corvanectl notify --agent'
            printf '%s\n' \
                'claude' \
                'codex' \
                'cursor'
        case 'corvanectl notify --kind'
            printf '%s\n' \
                'needs-input	The agent waits for the user' \
                'done	The agent has finished its turn'
        case 'corvanectl notify --cwd'
            printf '%s\n' \
                '@folder'
        case 'corvanectl notify --message'
            printf '%s\n' \
                '@text'
        case 'corvane-headless'
            printf '%s\n' \
                'hooks	Look after the agents\' hooks' \
                '--socket	Serve this socket' \
                '--workspaces	Take the workspaces from this JSON file' \
                '--answer	What to say to agents that ask for permission' \
                '--quiet	Print no log' \
                '--help	Print the usage' \
                '--version	Print the version'
        case 'corvane-headless --socket'
            printf '%s\n' \
                '@file'
        case 'corvane-headless --workspaces'
            printf '%s\n' \
                '@file'
        case 'corvane-headless --answer'
            printf '%s\n' \
                'allow	Yes to everything' \
                'deny	No to everything' \
                'ask	Show each request, and read the answer'
        case 'corvane-headless hooks'
            printf '%s\n' \
                'status	Show whether the hooks are there' \
                'add	Add or update the hooks' \
                'remove	Take the hooks out' \
                'show	Print what "add" would put into a new file' \
                'claude	Only this agent' \
                'codex	Only this agent' \
                'cursor	Only this agent' \
                '--home	The home folder with the agents\' folders' \
                '--tool	The corvanectl that the hooks call'
        case 'corvane-headless hooks* --home'
            printf '%s\n' \
                '@folder'
        case 'corvane-headless hooks* --tool'
            printf '%s\n' \
                '@file'
        case 'corvane-headless hooks *'
            printf '%s\n' \
                'claude	This agent' \
                'codex	This agent' \
                'cursor	This agent' \
                '--home	The home folder with the agents\' folders' \
                '--tool	The corvanectl that the hooks call'
        case '*'
            return 1
    end
end

# Prints the names of the workspaces: none when the application does not run. They come from its
# answer in JSON, because in the lines for people a name may look like the columns behind it. In JSON,
# a quote in a text has a backslash before it, so "name":" is never anything but the key. A name with
# a control character is left out: it cannot be shown.
function __corvane_workspaces
    set -l program $argv[1]
    set -l names (command $program list --json 2>/dev/null </dev/null |
        string replace --all '\\\\' \x1e | string replace --all '\\"' \x1f | string split '"name":"')
    for name in $names[2..]
        set name (string split --max 1 '"' -- $name)[1]
        if test -n "$name"; and not string match --quiet --regex -- '\\\\' $name
            string replace --all \x1e '\\' -- $name | string replace --all \x1f '"'
        end
    end
end

# Prints what can stand where the cursor is.
function __corvane
    set -l words (commandline -opc)
    set -l place (string replace --regex '.*/' '' -- $words[1])
    set -l named no
    set -l pending
    # `place` becomes the command so far, or an option waiting for its value.
    for position in (seq 2 (count $words))
        set -l word $words[$position]
        if set -q pending[1]
            set pending
        else if not __corvane_next "$place $word" >/dev/null
            string match --quiet -- '--*' $word; or set named yes
        else if string match --quiet -- '-*' $word
            set pending $word
        else if string match --quiet -- '* *' $place; or test $position = 2
            # Only the first word is a command.
            set place "$place $word"
        end
    end
    set -q pending[1]; and set place "$place $pending"
    set -l next (__corvane_next $place)
    switch "$next[1]"
        case @workspace
            test $named = no; and __corvane_workspaces $words[1]
        case @folder
            __fish_complete_directories (commandline -ct) ''
        case @file
            __fish_complete_path (commandline -ct) ''
        case @text
        case '*'
            for item in $next
                set -l word (string split --max 1 \t -- $item)[1]
                contains -- $word $words; and continue
                # Left to itself, fish would look for the letters in what it is as well.
                string match --quiet -- (commandline -ct)'*' $word; or continue
                # In the first place there can be a command, and options.
                if not string match --quiet -- '* *' $place; and test (count $words) -gt 1
                    string match --quiet -- '-*' $word; or continue
                end
                printf '%s\n' $item
            end
    end
end

complete -c corvanectl -f -k -a '(__corvane)'
complete -c corvane-headless -f -k -a '(__corvane)'
