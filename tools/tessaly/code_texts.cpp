#include "tools/tessaly/code_texts.h"

#include "tools/tessaly/terminal.h"

#include <algorithm>
#include <cstddef>

namespace tessaly::tool {

namespace {

// clang-format off
constexpr code_text primary_texts[] = {
    {OK, "The verb did what it was asked.", "Nothing; the other fields of the block hold its results."},
    {PARAMETER_CHECK, "A field of the block is wrong.", "See the secondary code for which one, and correct the program."},
    {STATE_CHECK, "The verb does not fit the state of the conversation or of the program.",
     "See the secondary code; ask GET_STATE for the state, and follow what_rcvd of the last receive verb."},
    {TP_BUSY, "Another synchronous verb of this TP has not completed.",
     "Wait for it, or issue verbs through appc_c1 or APPC_Async, which have no such limit."},
    {ALLOCATION_ERROR, "The conversation could not be set up.",
     "See the secondary code for what the partner or the node refused."},
    {ACTIVATION_FAIL_RETRY, "No session could be activated now.", "Try again later."},
    {COMMS_SUBSYSTEM_ABENDED, "The path to the node is lost; the TP and its conversations are gone.",
     "End the TP, see that the node runs, then begin anew with TP_STARTED."},
    {ACTIVATION_FAIL_NO_RETRY, "No session can be activated.",
     "Check the definitions of mode and partner LU; trying again does not help."},
    {COMMS_SUBSYSTEM_NOT_LOADED, "No node can be reached.", "Start the node, and check that TESSALY_NODE names its socket."},
    {DEALLOC_ABEND, "The partner ended the conversation abnormally.",
     "Look at the partner's own messages; data under way may be lost."},
    {LU_SESS_LIMIT_EXCEEDED, "The LU has as many sessions as it may have.",
     "Wait until a conversation ends, or raise the limit."},
    {DEALLOC_ABEND_PROG, "The partner's program ended the conversation abnormally.",
     "Look at the partner's own messages; data under way may be lost."},
    {FUNCTION_NOT_SUPPORTED, "The node does not do this verb or this option of it.",
     "Use another verb or option; the node's documentation lists them."},
    {DEALLOC_ABEND_SVC, "A service program of the partner ended the conversation abnormally.", "Look at the partner's logs."},
    {DEALLOC_ABEND_TIMER, "The partner ended the conversation because its time was up.",
     "See why this side answered late, then allocate again."},
    {DEALLOC_NORMAL, "The partner ended the conversation normally.",
     "Nothing: all data came; the conversation's identifier is gone."},
    {PROG_ERROR_NO_TRUNC, "The partner issued SEND_ERROR between two records.",
     "Receive what it sends next: it says what is wrong."},
    {PROG_ERROR_TRUNC, "The partner issued SEND_ERROR inside a record, which stays incomplete.",
     "Drop that record and receive what comes next."},
    {PROG_ERROR_PURGING, "The partner issued SEND_ERROR while it was receiving; data under way were dropped.",
     "Receive what it sends next, and send again what must not be lost."},
    {CONV_FAILURE_RETRY, "The conversation failed, for a reason that may pass.", "Allocate again."},
    {CONV_FAILURE_NO_RETRY, "The conversation failed: the partner or its path is gone.",
     "See whether the partner still runs, then allocate again."},
    {SVC_ERROR_NO_TRUNC, "A service program of the partner reported an error between two records.",
     "Receive what it sends next."},
    {UNEXPECTED_SYSTEM_ERROR, "A resource or the transport failed; the secondary code is the system's own number.",
     "Look at the log (TESSALY_LOG=stderr); free memory or file descriptors, then try again."},
    {SVC_ERROR_TRUNC, "A service program of the partner reported an error inside a record.",
     "Drop that record and receive what comes next."},
    {SVC_ERROR_PURGING, "A service program of the partner reported an error while it was receiving.",
     "Receive what it sends next."},
    {UNSUCCESSFUL, "There was nothing to receive or to report.", "Ask again later, or use a verb that waits."},
    {CNOS_PARTNER_LU_REJECT, "The partner LU refused the number of sessions.",
     "Agree on session limits with the partner's side."},
    {CONVERSATION_TYPE_MIXED, "Verbs for mapped and for basic conversations were mixed.",
     "Set APPC_MAPPED_CONVERSATION in opext of every verb of a mapped conversation, and of no other."},
    {CANCELLED, "The verb was ended by CANCEL_CONV or TP_ENDED.", "Nothing, if that was intended."},
    {BACKED_OUT, "The unit of work was backed out.", "Restore what belongs to it, then start it again."},
    {DUPLEX_TYPE_MIXED, "Verbs for full-duplex and half-duplex conversations were mixed.", "Use half-duplex verbs only."},
    {INVALID_VERB_SEGMENT, "The block is not where it may be.", "Pass the address of a whole block, as long as its struct."},
    {STACK_TOO_SMALL, "The caller's stack is too small.", "Give the thread a larger stack."},
    {INVALID_VERB, "There is no such verb, or not through this entry; the secondary code means nothing.",
     "Check opcode and format; set the block to zeros before filling it."},
    {TPS_SERVER_BUSY, "Another synchronous verb of this TP server has not completed.",
     "Wait for it, or issue the verb with a callback."},
};

constexpr const char* GIVE_THE_TURN_AWAY = "Give the turn away with PREPARE_TO_RECEIVE first, and answer a waiting confirmation.";
constexpr const char* WAIT_FOR_THE_TURN = "Receive until what_rcvd says APPC_WR_SEND, then try again.";
constexpr const char* COMPLETE_THE_RECORD = "Send the rest of the logical record first.";
constexpr const char* RECEIVE_STATE = "Receive in receive or send state only; answer a waiting confirmation first.";
constexpr const char* A_FILL = "Use APPC_FILL_BUFFER or APPC_FILL_LL.";
constexpr const char* A_GDS = "Let log data be one GDS variable whose length field tells its own length, or send none.";

constexpr code_text secondary_texts[] = {
    {SEC_NO_MEMORY, "Memory, a handle or a path could not be had.",
     "End conversations or programs that are not needed, then try again."},
    {SEC_IN_CALLBACK, "A synchronous verb was issued inside a callback.",
     "Issue it with APPC_Async, or outside of the callback."},
    {SEC_BAD_FORMAT, "The verb has no such format.", "Use format 0 or 1 as its struct in appc.h says."},
    {SEC_NO_POST_CALLBACK, "A verb that posts was told to wait, and its block names no callback.",
     "Set the block's own callback."},
    {SEC_BAD_TP_ID, "There is no TP with this identifier.",
     "Copy tp_id from TP_STARTED or RECEIVE_ALLOCATE, and do not use it after TP_ENDED."},
    {SEC_NO_ALLOCATE_PENDING, "CANCEL_CONV found nothing to cancel.", "Nothing, if the verb had completed before."},
    {SEC_LU_ALIAS_BARRED, "The LU alias map forbids this local LU.",
     "Use another alias, or change lualiasmap.txt (docs/settings.md)."},
    {SEC_NODE_NOT_FOUND, "No further node offers the service.", "Start a node, or check the names that the program uses."},
    {SEC_ALLOCATE_FAILED, "The node gave up waiting for a conversation.", "Call the receive-allocate verb again."},
    {SEC_BAD_CONV_ID, "There is no conversation with this identifier.",
     "Copy conv_id from ALLOCATE or RECEIVE_ALLOCATE, and do not use it after its end."},
    {SEC_BAD_LU_ALIAS, "There is no LU with this alias.",
     "Use 8 ASCII bytes, padded with blanks; tessaly status lists the LUs of a node."},
    {SEC_ALLOCATION_FAILURE_NO_RETRY, "The conversation cannot be set up.",
     "Check LU, mode and TP name; trying again does not help."},
    {SEC_ALLOCATION_FAILURE_RETRY, "The conversation cannot be set up now.", "Try again later."},
    {SEC_INVALID_DATA_SEGMENT, "Length and address of the data do not fit.",
     "Set dptr when dlen is not 0, and keep to the verb's largest length."},
    {SEC_BAD_CONV_TYPE, "The conversation type is wrong, or opext says another one.",
     "Use APPC_BASIC or APPC_MAPPED, with APPC_MAPPED_CONVERSATION in opext of all verbs of a mapped conversation."},
    {SEC_BAD_SYNC_LEVEL, "The sync level is none that there is.", "Use APPC_SYNC_NONE or APPC_SYNC_CONFIRM."},
    {SEC_BAD_SECURITY, "The security field has no such value.", "Use APPC_SECURITY_NONE, _SAME or _PGM."},
    {SEC_BAD_RETURN_CONTROL, "rtn_ctl has no such value.", "Use a value that appc.h lists for this verb."},
    {SEC_PIP_LEN_INCORRECT, "The PIP data contradict their length.",
     "Let pip_dlen count all fields with their own length bytes."},
    {SEC_UNKNOWN_PARTNER_MODE, "The partner LU has no such mode.", "Check mode_name: 8 EBCDIC bytes, padded with blanks."},
    {SEC_CONFIRM_ON_SYNC_LEVEL_NONE, "CONFIRM on a conversation without confirmation.", "Allocate with APPC_SYNC_CONFIRM."},
    {SEC_CONFIRM_BAD_STATE, "CONFIRM without the turn.", WAIT_FOR_THE_TURN},
    {SEC_CONFIRM_NOT_LL_BDY, "CONFIRM inside a logical record.", COMPLETE_THE_RECORD},
    {SEC_CONFIRMED_BAD_STATE, "CONFIRMED though nothing waits to be confirmed.",
     "Call it only after what_rcvd said APPC_WR_CONFIRM..."},
    {SEC_DEALLOC_BAD_TYPE, "dealloc_type does not fit this conversation.",
     "Use a value that appc.h lists for its type and sync level."},
    {SEC_DEALLOC_FLUSH_BAD_STATE, "DEALLOCATE without the turn.", "Receive until the turn comes, or deallocate abnormally."},
    {SEC_DEALLOC_CONFIRM_BAD_STATE, "DEALLOCATE with confirmation without the turn, or without sync level confirm.",
     "Receive until the turn comes, or deallocate abnormally."},
    {SEC_DEALLOC_NOT_LL_BDY, "DEALLOCATE inside a logical record.", COMPLETE_THE_RECORD},
    {SEC_DEALLOC_LOG_LL_WRONG, "The log data of DEALLOCATE contradict their length.", A_GDS},
    {SEC_FLUSH_NOT_SEND_STATE, "FLUSH without the turn.", WAIT_FOR_THE_TURN},
    {SEC_P_TO_R_INVALID_TYPE, "ptr_type has no such value.", "Use APPC_P_TO_R_SYNC_LEVEL, _FLUSH or _CONFIRM."},
    {SEC_P_TO_R_NOT_LL_BDY, "PREPARE_TO_RECEIVE inside a logical record.", COMPLETE_THE_RECORD},
    {SEC_P_TO_R_NOT_SEND_STATE, "PREPARE_TO_RECEIVE without the turn.", "Go on receiving: the partner has the turn already."},
    {SEC_RCV_AND_WAIT_BAD_STATE, "RECEIVE_AND_WAIT in a state in which nothing can be received.", RECEIVE_STATE},
    {SEC_RCV_AND_WAIT_NOT_LL_BDY, "RECEIVE_AND_WAIT inside a logical record that is being sent.", COMPLETE_THE_RECORD},
    {SEC_RCV_AND_WAIT_BAD_FILL, "fill of RECEIVE_AND_WAIT has no such value.", A_FILL},
    {SEC_RCV_IMMD_BAD_STATE, "RECEIVE_IMMEDIATE in a state in which nothing can be received.", GIVE_THE_TURN_AWAY},
    {SEC_RCV_IMMD_BAD_FILL, "fill of RECEIVE_IMMEDIATE has no such value.", A_FILL},
    {SEC_RCV_AND_POST_BAD_STATE, "RECEIVE_AND_POST in a state in which nothing can be received.", RECEIVE_STATE},
    {SEC_RCV_AND_POST_NOT_LL_BDY, "RECEIVE_AND_POST inside a logical record that is being sent.", COMPLETE_THE_RECORD},
    {SEC_RCV_AND_POST_BAD_FILL, "fill of RECEIVE_AND_POST has no such value.", A_FILL},
    {SEC_R_T_S_BAD_STATE, "REQUEST_TO_SEND in a state in which the turn cannot be asked for.",
     "Call it while the partner has the turn."},
    {SEC_BAD_LL, "The length field of a logical record is wrong.",
     "Let LL count itself: 2 to 32767, most significant byte first."},
    {SEC_SEND_DATA_NOT_SEND_STATE, "SEND_DATA without the turn.", WAIT_FOR_THE_TURN},
    {SEC_SEND_DATA_INVALID_TYPE, "type of SEND_DATA has no such value.", "Use one of APPC_SEND_..."},
    {SEC_SEND_DATA_CONFIRM_ON_SYNC_LEVEL_NONE, "SEND_DATA asks for confirmation on a conversation without it.",
     "Allocate with APPC_SYNC_CONFIRM."},
    {SEC_SEND_ERROR_BAD_TYPE, "err_type has no such value.", "Use APPC_PROG_ERROR or APPC_SVC_ERROR."},
    {SEC_SEND_ERROR_BAD_STATE, "SEND_ERROR in a state in which no error can be told.",
     "Call it while the conversation exists and no confirmation is waited for."},
    {SEC_SEND_ERROR_LOG_LL_WRONG, "The log data of SEND_ERROR contradict their length.", A_GDS},
    {SEC_TEST_RTS_BAD_STATE, "TEST_RTS in a state in which nobody can ask for the turn.",
     "Call it while this side has the turn."},
    {SEC_TRANS_PGM_NOT_AVAIL_RETRY, "No program took the conversation in time.",
     "Start the program on the partner's side (one that waits in RECEIVE_ALLOCATE), then try again."},
    {SEC_TRANS_PGM_NOT_AVAIL_NO_RETRY, "The partner's program cannot be started.",
     "Check its definition on the partner's side."},
    {SEC_TP_NAME_NOT_RECOGNIZED, "The partner LU knows no program of this name.",
     "Check tp_name: EBCDIC, padded with blanks to 64 bytes."},
    {SEC_PIP_NOT_ALLOWED, "The partner's program takes no PIP data.", "Allocate without them."},
    {SEC_PIP_NOT_SPECIFIED_CORRECTLY, "The partner's program wants other PIP data.", "Send as many PIP fields as it expects."},
    {SEC_CONVERSATION_TYPE_MISMATCH, "The partner's program wants the other conversation type.",
     "Change conv_type, and opext with it."},
    {SEC_SYNC_LEVEL_NOT_SUPPORTED, "The partner's program does not support this sync level.",
     "Allocate with the other sync level."},
    {SEC_SECURITY_NOT_VALID, "The partner refused the user or the password.",
     "Check user_id and pwd: EBCDIC, padded with blanks."},
    {SEC_BAD_SERVER_HANDLE, "There is no TP server with this server_handle.",
     "Use the handle that NAP_REGISTER_TP_SERVER returned; register anew after the node has ended."},
    {SEC_NO_SERVER_CALLBACK, "server_callback of NAP_REGISTER_TP_SERVER is null.", "Give the routine that takes start requests."},
    {SEC_BAD_EVENTS_FLAG, "file_status_events of NAP_REGISTER_TP_SERVER has no such value.", "Use 0 or 1."},
    {SEC_BAD_TP_TYPE, "tp_type of NAP_REGISTER_TP has no such value.", "Use one of APPC_TP_..."},
    {SEC_BAD_TP_LU_ALIAS, "lu_alias of NAP_REGISTER_TP is no alias.",
     "Use printable ASCII, padded with blanks to 8 bytes; blanks alone for any local LU."},
    {SEC_BAD_PLU_NAME, "fqplu_name of NAP_REGISTER_TP is neither a name nor a pattern.",
     "Use EBCDIC, padded with blanks to 17 bytes: NETA.LUX, NETA.LU*, LU*, or blanks for any partner."},
    {SEC_BAD_ATTACH_ID, "There is no start request with this start_id.", "Use start_id as the server's callback received it."},
    {SEC_TP_NOT_DEFINED, "tp_reg_id names no definition of this TP server.",
     "Use the tp_reg_id that NAP_REGISTER_TP returned."},
    {SEC_TP_ALREADY_DEFINED, "Another TP server defines the same TP for the same LU and partner.",
     "Unregister it there first, or define another name."},
    {SEC_ATTACH_GONE, "The conversation of this start request ended, or another program took it, meanwhile.",
     "Nothing; wait for the next start request."},
};
// clang-format on

template <std::size_t Texts, std::size_t Names>
constexpr bool explains_each(const code_text (&texts)[Texts], const code_name (&names)[Names])
{
    return std::ranges::equal(texts, names, {}, &code_text::value, &code_name::value);
}

static_assert(explains_each(primary_texts, primary_code_names),
              "a text for every primary code, in the order of appc.h");
static_assert(explains_each(secondary_texts, secondary_code_names),
              "a text for every secondary code, in the order of appc.h");

template <std::size_t Codes>
void add(std::vector<explained_code>& all, code_kind kind, const code_text (&texts)[Codes],
         const code_name (&names)[Codes])
{
    for (std::size_t at = 0; at < Codes; ++at)
        all.push_back({kind, texts[at].value, names[at].name, texts[at].meaning, texts[at].next_step});
}

}  // namespace

const std::vector<explained_code>& all_codes()
{
    static const auto codes = [] {
        std::vector<explained_code> all;
        add(all, code_kind::primary, primary_texts, primary_code_names);
        add(all, code_kind::secondary, secondary_texts, secondary_code_names);
        return all;
    }();
    return codes;
}

std::vector<explained_code> codes_of(code_kind kind, u32 value)
{
    std::vector<explained_code> found;
    std::ranges::copy_if(all_codes(), std::back_inserter(found),
                         [&](const explained_code& code) { return code.kind == kind && code.value == value; });
    return found;
}

std::string name_of(code_kind kind, u32 value)
{
    const std::string number = text_of(kind == code_kind::primary ? "0x%04X" : "0x%08X", value);
    std::string names;
    for (const explained_code& code : codes_of(kind, value))
        names += (names.empty() ? "" : " or ") + std::string(code.name);
    return names.empty() ? number : names + " (" + number + ")";
}

}  // namespace tessaly::tool
