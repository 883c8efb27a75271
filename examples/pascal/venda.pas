{ A till in Free Pascal: asks the device how it is, sells, and finds out what became of the sale if its reply does not
  say.

    venda LIBRARY ACTIVATION_CODE SALE_FILE

  Exit status: 0 sold, 1 nothing was issued, 3 unknown, do not sell again before you know. }
program venda;

{$mode objfpc}{$H+}

uses
  Classes, SysUtils, DynLibs;

type
  TQueryFunction = function(Session: LongInt; Code: PChar): PChar; cdecl;
  TSessionFunction = function(Session: LongInt; Code: PChar; Asked: LongInt): PChar; cdecl;
  TSaleFunction = function(Session: LongInt; Code, Sale: PChar): PChar; cdecl;
  TDrawFunction = function(N: LongWord): LongWord; cdecl;
  TOutcome = (Issued, Refused, NotSent, NotIssued, Unknown);

const
  OutcomeTexts: array[TOutcome] of string = ('issued', 'refused', 'not sent', 'not issued', 'unknown');
  ExitStatuses: array[TOutcome] of Integer = (0, 1, 1, 1, 3);
  { Session numbers stay below this: devices pad theirs to six digits, the library's own busy reply does not. }
  Sessions = 100000;
  StatusNames: array[0..27] of string = (
    'numeroSessao', 'EEEEE', 'mensagem', 'cod', 'mensagemSEFAZ', 'NSERIE', 'TIPO_LAN', 'LAN_IP', 'LAN_MAC',
    'LAN_MASK', 'LAN_GW', 'LAN_DNS_1', 'LAN_DNS_2', 'STATUS_LAN', 'NIVEL_BATERIA', 'MT_TOTAL', 'MT_USADA',
    'DH_ATUAL', 'VER_SB', 'VER_LAYOUT', 'ULTIMO_CF_E_SAT', 'LISTA_INICIAL', 'LISTA_FINAL', 'DH_CFE', 'DH_ULTIMA',
    'CERT_EMISSAO', 'CERT_VENCIMENTO', 'ESTADO_OPERACAO');
  ReceiptNames: array[0..11] of string = (
    'numeroSessao', 'EEEEE', 'CCCC', 'mensagem', 'cod', 'mensagemSEFAZ', 'arquivoCFeBase64', 'timeStamp',
    'chaveConsulta', 'valorTotalCFe', 'CPFCNPJValue', 'assinaturaQRCODE');

var
  Talvex: TLibHandle;

function FunctionOf(const Name: string): Pointer;
begin
  Result := GetProcedureAddress(Talvex, Name);
  if Result = nil then
    raise Exception.Create(Name + ' is not in the library');
end;

{ Shows the reply and returns its fields. The library overwrites its text at the next call; this keeps a copy. }
function Show(const Title: string; Reply: PChar; const Names: array of string): TStringArray;
var
  Text, Name: string;
  I: Integer;
begin
  Text := StrPas(Reply);
  if Text.StartsWith('SAT Erro[') then
    Result := [Text]
  else
    Result := Text.Split(['|']);
  WriteLn(Title);
  for I := 0 to High(Result) do
  begin
    Name := '?';
    if I <= High(Names) then
      Name := Names[I];
    Write('  ', Name.PadRight(18), Copy(Result[I], 1, 60));
    if Length(Result[I]) > 60 then
      Write('...');
    WriteLn;
  end;
end;

function ReadFile(const Path: string): string;
begin
  with TStringStream.Create('') do
  try
    LoadFromFile(Path);
    Result := DataString;
  finally
    Free;
  end;
end;

{ The session number must differ from the last one. }
function NextSession(Session: LongInt): LongInt;
begin
  Result := (Session + 1) mod Sessions;
end;

function Field(const Reply: TStringArray; Index: Integer): string;
begin
  Result := '';
  if Index < Length(Reply) then
    Result := Reply[Index];
end;

function IsDigits(const Text: string): Boolean;
var
  C: Char;
begin
  Result := Text <> '';
  for C in Text do
    Result := Result and (C in ['0'..'9']);
end;

function IsOf(const Reply: TStringArray; Session: LongInt): Boolean;
begin
  Result := IsDigits(Field(Reply, 0)) and (StrToIntDef(Field(Reply, 0), -1) = Session);
end;

{ What a reply settles of the sale with that session number. 06097 to 06099 are no refusals: where the line spoils an
  acknowledgement, the library sends the command again, and they are the device's answers to a repetition of what it
  has carried out. Only the library's own busy reply has no leading zeros: nothing was sent. }
function SettlesSale(const Reply: TStringArray; Session: LongInt): TOutcome;
var
  Code: string;
begin
  Code := Field(Reply, 1);
  if not IsOf(Reply, Session) or (Length(Code) <> 5) or not IsDigits(Code) or not Code.StartsWith('06') then
    Result := Unknown
  else if Code = '06000' then
    Result := Issued
  else if (Code = '06098') and (Reply[0] = IntToStr(Session)) then
    Result := NotSent
  else if (Code = '06097') or (Code = '06098') or (Code = '06099') then
    Result := Unknown
  else
    Result := Refused;
end;

function IsSold(const Reply: TStringArray; Session: LongInt; const KeyBefore: string): Boolean;
begin
  Result := (SettlesSale(Reply, Session) = Issued) and (Field(Reply, 8) <> KeyBefore);
end;

{ What became of the sale with that session number. KeyBefore is the access key of the last receipt that was known
  before the sale, empty if there was none. }
function FindOut(Session: LongInt; const Code, KeyBefore: string): TOutcome;
var
  Query: LongInt;
  Stored, Last: TStringArray;
  Unchanged: Boolean;
begin
  Query := NextSession(Session);
  Stored := Show('ConsultarNumeroSessao',
    TSessionFunction(FunctionOf('ConsultarNumeroSessao'))(Query, PChar(Code), Session), ReceiptNames);
  if IsSold(Stored, Session, KeyBefore) then
    Exit(Issued);
  if SettlesSale(Stored, Session) = Refused then
    Exit(Refused);
  { Only a device that was asked, and knows nothing of the sale, is asked for its last receipt. }
  if not IsOf(Stored, Session) and (Field(Stored, 1) <> '11003') and (Field(Stored, 1) <> '11099') then
    Exit(Unknown);

  Last := Show('ConsultarUltimaSessaoFiscal',
    TQueryFunction(FunctionOf('ConsultarUltimaSessaoFiscal'))(NextSession(Query), PChar(Code)), ReceiptNames);
  if IsSold(Last, Session, KeyBefore) then
    Exit(Issued);
  if SettlesSale(Last, Session) = Refused then
    Exit(Refused);
  if KeyBefore = '' then
    Unchanged := Field(Last, 1) = '19003'
  else
    Unchanged := Field(Last, 8) = KeyBefore;
  Result := Unknown;
  if Unchanged then
    Result := NotIssued;
end;

function ExitStatus: Integer;
var
  Session: LongInt;
  Code, Sale, KeyBefore: string;
  Fields: TStringArray;
  Outcome: TOutcome;
begin
  Result := 1;
  Code := ParamStr(2);
  Sale := ReadFile(ParamStr(3));

  Session := LongInt(TDrawFunction(FunctionOf('SAT_APP_GenRndNum'))(Sessions));
  Fields := Show('ConsultarStatusOperacional',
    TQueryFunction(FunctionOf('ConsultarStatusOperacional'))(Session, PChar(Code)), StatusNames);
  if not IsOf(Fields, Session) or (Field(Fields, 1) <> '10000') then
    Exit;

  { A till writes both down before it sells, where a power failure does not reach them. }
  Session := NextSession(Session);
  KeyBefore := Field(Fields, 20);  { ULTIMO_CF_E_SAT }
  Fields := Show('EnviarDadosVenda',
    TSaleFunction(FunctionOf('EnviarDadosVenda'))(Session, PChar(Code), PChar(Sale)), ReceiptNames);
  Outcome := SettlesSale(Fields, Session);
  if Outcome = Unknown then
    Outcome := FindOut(Session, Code, KeyBefore);
  WriteLn('=> ', OutcomeTexts[Outcome]);
  Result := ExitStatuses[Outcome];
end;

begin
  if ParamCount <> 3 then
  begin
    WriteLn(StdErr, 'usage: venda LIBRARY ACTIVATION_CODE SALE_FILE');
    Halt(2);
  end;
  Talvex := LoadLibrary(ParamStr(1));
  if Talvex = NilHandle then
  begin
    WriteLn(StdErr, GetLoadErrorStr);
    Halt(1);
  end;
  Halt(ExitStatus);
end.
