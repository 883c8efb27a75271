{ A till in Free Pascal: asks the device how it is and sells.

    venda LIBRARY ACTIVATION_CODE SALE_FILE }
program venda;

{$mode objfpc}{$H+}

uses
  Classes, SysUtils, DynLibs;

type
  TStatusFunction = function(Session: LongInt; Code: PChar): PChar; cdecl;
  TSaleFunction = function(Session: LongInt; Code, Sale: PChar): PChar; cdecl;
  TDrawFunction = function(N: LongWord): LongWord; cdecl;

const
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

function Sold: Boolean;
var
  Session: LongInt;
  Code, Sale: string;
  Fields: TStringArray;
begin
  Result := False;
  Code := ParamStr(2);
  Sale := ReadFile(ParamStr(3));

  Session := LongInt(TDrawFunction(FunctionOf('SAT_APP_GenRndNum'))(1000000));
  Fields := Show('ConsultarStatusOperacional',
    TStatusFunction(FunctionOf('ConsultarStatusOperacional'))(Session, PChar(Code)), StatusNames);
  if (Length(Fields) < 2) or (Fields[1] <> '10000') then
    Exit;

  { The session number must differ from the last one. }
  Session := (Session + 1) mod 1000000;
  Fields := Show('EnviarDadosVenda',
    TSaleFunction(FunctionOf('EnviarDadosVenda'))(Session, PChar(Code), PChar(Sale)), ReceiptNames);
  Result := (Length(Fields) > 1) and (StrToIntDef(Fields[0], -1) = Session) and (Fields[1] = '06000');
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
  if not Sold then
    Halt(1);
end.
