#include "Kelvadrome/platform/linux/audio/RequestPhrases.h"

namespace kelvadrome {

namespace {

constexpr RequestPhrases::Pronunciation pronunciations[] = {
    {"aider", "EY D ER"},
    {"anthropic", "AE N TH R AA P IH K"},
    {"api", "EY P IY AY"},
    {"async", "EY S IH NG K"},
    {"autocomplete", "AO T OW K AH M P L IY T"},
    {"backend", "B AE K EH N D"},
    {"changelog", "CH EY N JH L AO G"},
    {"checkbox", "CH EH K B AA K S"},
    {"codex", "K OW D EH K S"},
    {"config", "K AH N F IH G"},
    {"css", "S IY EH S EH S"},
    {"debugger", "D IY B AH G ER"},
    {"dropdown", "D R AA P D AW N"},
    {"frontend", "F R AH N T EH N D"},
    {"github", "G IH T HH AH B"},
    {"gitlab", "G IH T L AE B"},
    {"html", "EY CH T IY EH M EH L"},
    {"json", "JH EY S AH N"},
    {"kelvadrome", "K EH L V AH D R OW M"},
    {"kubernetes", "K UW B ER N EH T IY Z"},
    {"linter", "L IH N T ER"},
    {"localhost", "L OW K AH L HH OW S T"},
    {"navbar", "N AE V B AA R"},
    {"npm", "EH N P IY EH M"},
    {"openai", "OW P AH N EY AY"},
    {"opencode", "OW P AH N K OW D"},
    {"qwen", "K W EH N"},
    {"readme", "R IY D M IY"},
    {"rebase", "R IY B EY S"},
    {"refactor", "R IY F AE K T ER"},
    {"regex", "R EH JH EH K S"},
    {"sql", "S IY K W AH L"},
    {"ssh", "EH S EH S EY CH"},
    {"tmux", "T IY M AH K S"},
    {"tooltip", "T UW L T IH P"},
    {"typescript", "T AY P S K R IH P T"},
    {"typo", "T AY P OW"},
    {"typos", "T AY P OW Z"},
    {"url", "Y UW AA R EH L"},
    {"worktree", "W ER K T R IY"},
    {"yaml", "Y AE M AH L"},
};

constexpr std::string_view ways = R"(
agent: claude | codex | gemini | claude | codex | copilot | cursor | opencode | aider | amp | qwen | the agent | the other agent | the first agent | both agents | all agents | everyone
tell: tell | ask | have | let | get
please: please | can you | could you | i want you to | i would like you to | go ahead and | now | then | also | and then | just | let us | you should | we need to
polite: please | for me | now | again | first | when you are done | as soon as possible | before you go on | and show me the result | and tell me what you find | and then stop | but do not commit anything | if that is possible | one more time | from the beginning
thing: the tests | the test | the unit tests | the build | the code | the page | the main page | the start page | the server | the client | the program | the application | the project | the script | the window | the screen | the menu | the table | the list | the form | the button | the icon | the logo | the text | the title | the color | the layout | the style sheet | the parser | the database | the cache | the queue | the log | the log file | the readme | the changelog | the config | the config file | the documentation | the docs | the types | the names | the error message | the error handling | the warning | the warnings | the bug | the crash | the memory leak | the race condition | the timeout | the login | the password | the sign up form | the search | the api | the backend | the frontend | the endpoint | the route | the query | the schema | the migration | the dependencies | the packages | the version | the release | the branch | the main branch | the commit | the commits | the pull request | the merge request | the merge conflict | the issue | the ticket | the comments | the license | the folder | the file | the files | the function | the method | the class | the module | the variable | the header | the footer | the sidebar | the dialog | the dropdown | the tooltip | the settings | the settings page | the profile page | the home page | the payment page | the workflow | the pipeline | the container | the docker image | the linter | the compiler | the json file | the yaml file | the html | the css | the typescript types | the regex | the worktree | the terminal | the session | the key | the token | the environment | the environment variables | the translations | the screenshots | the typo
which: the last | the latest | the first | the second | the third | the next | the previous | the new | the old | the failing | the broken | the slow | the missing | the open | the current | the whole | my | our | this | that | every | all the | a new | another | a better | a small
noun: test | tests | build | page | server | script | window | button | list | table | form | parser | database | cache | log | file | files | function | class | module | variable | header | endpoint | query | migration | package | version | release | branch | commit | commits | change | changes | pull request | issue | ticket | comment | comments | error | errors | warning | bug | bugs | question | questions | answer | answers | request | requests | session | sessions | card | cards | topic | topics | agent | agents | message | messages | option | step | steps | version | line | lines | word | column | folder | example | plan | draft | idea | part | link | field | test case | feature
object: $thing | $thing | $which $noun | it | this | that | everything | them
verb: fix | check | review | read | write | change | update | remove | delete | add | move | rename | refactor | clean up | simplify | rewrite | test | run | start | restart | stop | build | rebuild | open | close | show me | explain | describe | look at | look into | find | search | search for | debug | improve | speed up | undo | revert | redo | commit | push | pull | merge | rebase | deploy | release | publish | install | upgrade | document | translate | format | sort | replace | copy | split | try | retry | finish | continue with | work on | wait for | take care of | think about | compare | measure | print | save | ignore | skip | keep | use | create | make | implement
run: run the tests | run all the tests | run the linter | run the build | run npm test | run npm install | run the server | run the script | run it | run it locally | run the migration
code: write a test for $object | write tests for $object | add a test | add a comment to $object | add $object to $object | add error handling to $object | add logging | add dark mode | add an option for $object | add a page for $object | make $object faster | make $object smaller | make $object bigger | make it work | make the tests pass | make sure the tests pass | make sure that $object works | move $object to $object | move $object into $object | rename $object to $noun | replace $object with $object | remove $object from $object | fix $object in $object | fix $object and $run | $run and fix $object | find out why $why | use $object instead of $object | use typescript | use python | use the second option | use the same $noun as before | update the dependencies | bump the version | write it down | write a readme | create a new $noun | create a branch | create a pull request | open a pull request | open an issue on github | make a new branch | make a plan | make a plan first | make a commit | commit the changes | commit everything | commit and push | push it | push to main | push to github | pull from main | merge it | merge the branch into main | rebase on main | resolve the conflicts | squash the commits | deploy to production | deploy to staging | roll back the release | split the function into two | clean up the code | look for security problems | look at the log | check for typos | check the types | handle the error | catch the exception | log the error | return an error | use the cache | start over | start again | start from the beginning | try again | try something else | try another way | go on | go ahead | go back | carry on | continue | keep going | keep it simple | stop | stop it | stop that | stop working on $object | wait | wait a minute | wait until tomorrow | wait for me | wait for my answer | take a break | finish what you started | change nothing | not change anything | do nothing else | leave $object alone | leave it as it is | not touch $object | not use $object | not push anything | not commit anything | ask before you $verb anything | ask me before you $verb $object | tell me what you think | tell me when you are done | tell me what went wrong | tell me what changed | tell me why $why | explain what $object does | explain how $object works | explain why $why | show me the diff | show me the changes | show me what you have | answer the question | answer the last question
why: $object fails | $object failed | $object is slow | $object is so slow | $object is broken | $object does not work | $object crashed | $object changed | it takes so long | nothing happens | the tests fail | the build is red | the server does not start | the page is empty
task: $verb $object | $code | $verb $object | $code | $run | $verb $object and $verb $object | $verb $object and then $code | $verb $object in the $noun | $verb $object on the $noun | $verb $object before $when | $verb $object for $object | $verb $object with $object
when: today | tomorrow | yesterday | this morning | this afternoon | this evening | this week | last week | next week | on monday | on tuesday | on wednesday | on thursday | on friday | at noon | tonight | last night | this month | right now | at the moment | in an hour | in ten minutes | five minutes ago | since yesterday | since last week | so far
Order: $tell $agent to $task | $tell $agent to $task | $tell $agent to $task $polite | $tell $agent $task | have $agent $task | let $agent $task | $agent should $task | $agent please $task
Said: tell $agent that $fact | tell $agent yes | tell $agent no | tell $agent no and $task | tell $agent yes but $code | say yes to $agent | say no to $agent | answer $agent with yes | ask $agent what $object is | ask $agent why $why | ask $agent how far it is | ask $agent if $fact | ask $agent whether $fact | ask $agent for $object | send $agent $object
fact: $object is in $object | $object is ready | $object is done | $object is wrong | $object is too slow | $object is missing | the tests pass | the build fails | that is fine | that is not what i meant | that was wrong | it looks good | i am not sure | i will do it myself | i will look at it $when | we do not need $object | we use $noun for that | it has to be ready $when | the port is eight thousand | there is a file in the folder | there are two of them | it works on my machine | i changed my mind
Task: $task | $please $task | $task $polite | $please $task $polite | do not $task | do not $verb $object | do not $verb $object yet | never $verb $object | $task but do not $verb $object | $task without $noun | $verb $object $when
Ask: what is waiting | what is waiting for me now | what is new | what is next | what is going on | what is the status | what is the status of $object | what is $agent doing | what is $agent waiting for | what is $agent working on | what are they doing | what did $agent do | what did $agent do $when | what did i miss | what did you change | what has changed $when | what happened | what happened $when | what happened to $object | what happened with $object | what should i do next | what needs me | what needs my answer | what do you need from me | what does $object do | what is wrong with $object | what is in $object | what was the last question | who is waiting for me | who is working on $object | who changed $object | which agents are waiting | which agents are working on $object | which agent asked | which sessions are open | which $noun is open | which tests fail | which tests are failing | how is $agent doing | how is it going | how far is $agent | how far are we with $object | how long will it take | how long does $object take | how many agents are running | how many questions are open | how many tests are there | how many tests failed | how much did it cost | how much did it cost $when | how much time do we have | how does $object work | how do i $verb $object | why did $object fail | why did it fail | why did $agent stop | why is $object slow | why is $object red | why does $object fail | when did $object change | when is $object done | when will it be ready | where is $object | where did you put $object | is $object ready | is $object done | is $agent done | is anything waiting | is there a $noun for $object | are the tests green | are there any questions | are there open questions | did $agent finish | did the tests pass | does $object work | can $agent $task | has $agent answered
Look: show me $object | show me all $noun | show me everything from $agent | show me what is waiting | show me the questions | show me the open $noun | show me the answers from $when | show the inbox | show the receipts | show receipts from $when | show me the receipts for $noun | show me what $agent did $when | list all agents | list the $noun | list the open $noun | find $object | find all $noun | find the card about $object | find the answer about $object | find $object from $when | search for $noun | search for $object | search for $noun from $when | open $object | open the inbox | open the settings | open the card about $object | open the topic | open the session with $agent | open the terminal | go to the inbox | go to the settings | switch to $agent | switch to the $noun | close the window | close this | hide this | give me a summary | give me a short summary of $object | give me the list | sum up $object | summarize $object | summarize what $agent did $when | summarize the changes | summarize the last $noun
Answer: yes | no | yes please | no thanks | yes go ahead | no do not do that | okay | allow it | allow it once | always allow it | allow $agent to $task | deny it | deny that | approve it | approve the plan | approve $object | accept it | accept the changes | reject it | reject $object | answer yes | answer no | answer with yes | answer the question with no | answer $agent with the first option | answer the question about $object | take the first option | take the second one | choose option one | choose option two | choose the third option | pick the second option | the first one | the second one | option three | not now | later | ask me later | ask me again $when | never mind | cancel | cancel that | that is enough | thank you
Manage: start a new session | start a session with $agent | start a new session with $agent | start $agent in the $noun | start a new topic | start a new topic for $object | make a new topic called $noun | stop $agent | stop all agents | stop the session | pause $agent | pause everything | pause $agent until $when | resume $agent | resume the session | continue the session with $agent | end the session | kill $agent | restart $agent | wake up $agent | remind me $when | remind me about $object | remind me about $object $when | remind me to $task | remind me to $task $when | put $object on the list | put $object into the topic | move $object to the topic | move the card to done | move this to $noun | mark $object as done | mark it as done | mark it as read | archive $object | archive the topic | note that $fact | remember that $fact | remember to $task | forget it
)";

} // namespace

std::span<const RequestPhrases::Pronunciation> RequestPhrases::words() {
    return pronunciations;
}

std::string_view RequestPhrases::templates() {
    return ways;
}

} // namespace kelvadrome
